#pragma once

#include <string>

#include "workbench/campaign/campaign.hpp"
#include "workbench/campaign/result_files.hpp"
#include "workbench/campaign/runner.hpp"

/// @file
/// The folder of a campaign: "campaign.json", which says what is run there, and the results.

namespace quen::workbench {

struct CampaignFolder {
  std::string name;
  Campaign campaign;
  ResultFiles results;
};

/// Makes a folder for a campaign, or goes on in one that is there.
/// @throws std::runtime_error  it cannot be made; it holds another campaign: the message says what differs
CampaignFolder PrepareFolder(const std::string& name, const CampaignInputs& inputs);

/// Opens a folder for a look at what is there.
/// @throws std::runtime_error  it holds no campaign, or it cannot be read
CampaignFolder OpenFolder(const std::string& name);

}  // namespace quen::workbench
