#pragma once

#include <string>

#include "tools/quen-shs/cli/command_line.hpp"

/// @file
/// The verbs that follow "quen-shs campaign" and have a source of their own, and arguments that several of them take.

namespace quen::tool {

Verb CampaignPlotVerb();
Verb CampaignSlurmVerb();

Argument CampaignFile(std::string& file);
Argument CampaignFolder(std::string& folder);
/// The folder that results are written to.
Argument CampaignOutput(std::string& folder);

}  // namespace quen::tool
