#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "workbench/campaign/campaign_folder.hpp"
#include "workbench/campaign/result_files.hpp"
#include "workbench/campaign/runner.hpp"

/// @file
/// Running what is missing of a campaign, with threads.

namespace quen::workbench {

/// Runs that follow one another in a shard.
struct RunRange {
  std::uint64_t first;  ///< number of the first one
  std::uint64_t count;
};

/// What there is to do of a shard: what is missing, is damaged, or has failed where that is tried again. It grows with
/// the gaps in what has been done, not with the runs.
struct WorkList {
  Shard shard;
  std::vector<RunRange> ranges = {};
  std::uint64_t runs = 0;          ///< in all of them
  std::uint64_t damaged = 0;       ///< of these
  std::string first_damaged = {};  ///< its number and file, in words; empty if there is none
};

/// Looks through all results once.
/// @param retry_failed  whether runs that have failed are tried again
/// @throws std::runtime_error  they cannot be read
WorkList WhatIsToDo(const CampaignFolder& folder, const Shard& shard, bool retry_failed);

struct ExecutionCounts {
  std::uint64_t finished = 0;
  std::uint64_t failed = 0;  ///< of those
};

/// Does it. Memory does not grow with the number of runs.
/// @param jobs       threads; fewer where the system gives no more
/// @param after_run  called after each run, by one thread at a time; what it throws ends the campaign
/// @throws Interrupted         a signal has come; what is finished is kept
/// @throws std::runtime_error  results cannot be written
ExecutionCounts Execute(const CampaignInputs& inputs, const CampaignFolder& folder, const WorkList& work, int jobs,
                        const std::function<void()>& after_run);

/// Runs the first frames of some points, to tell how long all will take.
/// @return  seconds, on one processor
double ExpectedSeconds(const CampaignInputs& inputs);

}  // namespace quen::workbench
