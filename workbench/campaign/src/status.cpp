#include "workbench/campaign/status.hpp"

#include <algorithm>

#include "workbench/campaign/src/at_work.hpp"
#include "workbench/fits/interruption.hpp"

namespace quen::workbench {
namespace {

void Count(std::uint64_t run, const RunRecord& record, CampaignStatus& status) {
  const auto name = [&](auto& list, const std::string& text) {
    if (list.size() < kNamedRuns) list.emplace_back(run, text);
  };
  switch (record.state) {
    case RunState::kDone:
      ++status.done;
      return;
    case RunState::kFailed:
      ++status.failed;
      return name(status.first_failures, record.failure);
    case RunState::kDamaged:
      ++status.damaged;
      ++status.missing;
      return name(status.first_damages, record.file);
    case RunState::kMissing:
      ++status.missing;
  }
}

}  // namespace

CampaignStatus StatusOf(const CampaignFolder& folder) {
  constexpr std::size_t kRunsAtOnce = 4096;
  CampaignStatus status;
  status.runs = folder.results.Runs();
  for (std::uint64_t first = 0; first < status.runs; first += kRunsAtOnce) {
    ThrowIfInterrupted();
    const std::vector<RunRecord> records = folder.results.Read(first, kRunsAtOnce);
    for (std::size_t k = 0; k < records.size(); ++k) Count(first + k, records[k], status);
  }
  for (const Worker& worker : WorkersIn(folder.name)) {
    status.running += static_cast<std::uint64_t>(worker.jobs);
    if (worker.seconds > 0.0) status.rate += static_cast<double>(worker.finished) / worker.seconds;
  }
  status.running = std::min(status.running, status.missing);
  if (status.rate > 0.0 && status.missing > 0) status.seconds_left = static_cast<double>(status.missing) / status.rate;
  return status;
}

}  // namespace quen::workbench
