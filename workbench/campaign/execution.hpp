#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "workbench/campaign/campaign_folder.hpp"
#include "workbench/campaign/result_files.hpp"
#include "workbench/campaign/runner.hpp"

/// @file
/// Running what is missing of a campaign, with threads.

namespace quen::workbench {

struct ExecutionOptions {
  int jobs = 1;  ///< threads; fewer where the system gives no more
  Shard shard = {};
  bool retry_failed = false;
};

/// What there is to do, and what has been.
struct ExecutionCounts {
  std::uint64_t to_do = 0;    ///< before: missing, damaged, and failed where these are tried again
  std::uint64_t damaged = 0;  ///< of them
  std::string first_damaged;  ///< its number and file, in words; empty if there is none
  std::uint64_t finished = 0;
  std::uint64_t failed = 0;  ///< of those
};

/// What is to be done of a shard.
/// @throws std::runtime_error  results cannot be read
ExecutionCounts WhatIsToDo(const CampaignFolder& folder, const ExecutionOptions& options);

/// Does it. Memory does not grow with the number of runs.
/// @param counts     as WhatIsToDo gives them; counts what is finished
/// @param after_run  called after each run, by one thread at a time; what it throws ends the campaign
/// @throws Interrupted         a signal has come; what is finished is kept
/// @throws std::runtime_error  results cannot be written
void Execute(const CampaignInputs& inputs, const CampaignFolder& folder, const ExecutionOptions& options,
             ExecutionCounts& counts, const std::function<void()>& after_run);

/// Runs the first frames of some points, to tell how long all will take.
/// @return  seconds, on one processor
double ExpectedSeconds(const CampaignInputs& inputs);

}  // namespace quen::workbench
