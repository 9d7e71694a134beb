#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "workbench/campaign/campaign_folder.hpp"

namespace quen::workbench {

/// How far a campaign is, while others work on it or not.
struct CampaignStatus {
  std::uint64_t runs = 0;
  std::uint64_t done = 0;
  std::uint64_t failed = 0;
  std::uint64_t damaged = 0;  ///< which count as missing
  std::uint64_t missing = 0;
  std::uint64_t running = 0;                                          ///< of the missing ones
  std::vector<std::pair<std::uint64_t, std::string>> first_failures;  ///< run, sentence
  std::vector<std::pair<std::uint64_t, std::string>> first_damages;   ///< run, file
  double rate = 0.0;                                                  ///< of all processes, runs per second
  std::optional<double> seconds_left = {};                            ///< none if nobody works, or all is done
};

/// How many of them are named.
inline constexpr std::size_t kNamedRuns = 10;

/// @throws std::runtime_error  results cannot be read
CampaignStatus StatusOf(const CampaignFolder& folder);

}  // namespace quen::workbench
