#include "workbench/campaign/execution.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <deque>
#include <exception>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "workbench/campaign/src/at_work.hpp"
#include "workbench/fits/interruption.hpp"

namespace quen::workbench {
namespace {

constexpr std::size_t kRunsAtOnce = 4096;  // runs that are looked at together

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

bool IsToDo(const RunRecord& record, bool retry_failed) {
  return record.state == RunState::kMissing || record.state == RunState::kDamaged ||
         (retry_failed && record.state == RunState::kFailed);
}

void Add(std::uint64_t run, const RunRecord& record, WorkList& work) {
  ++work.runs;
  if (record.state == RunState::kDamaged && work.damaged++ == 0) {
    work.first_damaged = fmt::format("run {} in {}", run, record.file);
  }
  if (!work.ranges.empty()) {
    RunRange& last = work.ranges.back();
    if (last.first + last.count * work.shard.of == run) {
      ++last.count;
      return;
    }
  }
  work.ranges.push_back({run, 1});
}

/// Ends a trial.
class Enough : public std::exception {};

/// Goes through the runs of a list, in their order.
class Queue {
 public:
  explicit Queue(const WorkList& work) : work_(work) {}

  /// None when all have been given out.
  std::optional<std::uint64_t> Next() {
    if (range_ == work_.ranges.size()) return std::nullopt;
    const RunRange& range = work_.ranges[range_];
    const std::uint64_t run = range.first + at_ * work_.shard.of;
    if (++at_ == range.count) {
      ++range_;
      at_ = 0;
    }
    return run;
  }

 private:
  const WorkList& work_;
  std::size_t range_ = 0;
  std::uint64_t at_ = 0;  ///< in the range
};

/// What the threads share.
class Crew {
 public:
  Crew(const CampaignFolder& folder, const WorkList& work, int jobs, const std::function<void()>& after_run)
      : to_do_(work), writer_(folder.results, work.shard), at_work_(folder.name, jobs), after_run_(after_run) {}

  /// Runs one after the other, until there is none left or a thread has failed.
  void Work(Runner& runner) {
    try {
      while (const auto run = Next()) {
        RunResult result = runner.Run(*run, [this] {
          ThrowIfInterrupted();
          if (is_over_) throw Interrupted();
        });
        const RunState state = result.failure.empty() ? RunState::kDone : RunState::kFailed;
        writer_.Write(*run, {state, std::move(result.values), std::move(result.failure)});
        Count(state);
      }
    } catch (...) {
      const std::scoped_lock lock(mutex_);
      if (!is_over_) failure_ = std::current_exception();
      is_over_ = true;
    }
  }

  /// Once all threads are back.
  ExecutionCounts End() {
    writer_.Settle();
    if (failure_) std::rethrow_exception(failure_);
    return counts_;
  }

 private:
  std::optional<std::uint64_t> Next() {
    const std::scoped_lock lock(mutex_);
    if (is_over_) return std::nullopt;
    return to_do_.Next();
  }

  /// The disk is waited for by one thread, while the others go on.
  void Count(RunState state) {
    if (Tell(state)) writer_.Settle();
  }

  /// @return  whether it is time to wait for the disk
  bool Tell(RunState state) {
    constexpr double kInterval = 5.0;  // seconds that a machine that stops may lose
    const std::scoped_lock lock(mutex_);
    ++counts_.finished;
    counts_.failed += state == RunState::kFailed ? 1U : 0U;
    at_work_.Tell(counts_.finished);
    after_run_();
    if (SecondsSince(settled_) <= kInterval) return false;
    settled_ = Clock::now();
    return true;
  }

  std::mutex mutex_;
  Queue to_do_;
  ResultFiles::Writer writer_;
  AtWork at_work_;
  ExecutionCounts counts_;
  const std::function<void()>& after_run_;
  Clock::time_point settled_ = Clock::now();
  std::atomic<bool> is_over_ = false;
  std::exception_ptr failure_;
};

}  // namespace

WorkList WhatIsToDo(const CampaignFolder& folder, const Shard& shard, bool retry_failed) {
  WorkList work = {.shard = shard};
  for (std::uint64_t first = 0; first < folder.results.Runs(); first += kRunsAtOnce) {
    ThrowIfInterrupted();
    const std::vector<RunRecord> records = folder.results.Read(first, kRunsAtOnce);
    for (std::size_t k = 0; k < records.size(); ++k) {
      if (shard.Has(first + k) && IsToDo(records[k], retry_failed)) Add(first + k, records[k], work);
    }
  }
  return work;
}

ExecutionCounts Execute(const CampaignInputs& inputs, const CampaignFolder& folder, const WorkList& work, int jobs,
                        const std::function<void()>& after_run) {
  std::deque<Runner> runners;  // made by one thread: the library's files are not for several
  const auto threads_at_most = std::min<std::uint64_t>(static_cast<std::uint64_t>(jobs), work.runs);
  for (std::uint64_t k = 0; k < threads_at_most; ++k) runners.emplace_back(inputs);
  Crew crew(folder, work, jobs, after_run);
  {
    std::vector<std::jthread> threads;
    try {
      for (std::size_t k = 1; k < runners.size(); ++k) {
        threads.emplace_back([&crew, &runner = runners[k]] { crew.Work(runner); });
      }
    } catch (const std::system_error& /*the system gives no more threads*/) {
    }
    if (!runners.empty()) crew.Work(runners.front());
  }
  return crew.End();
}

double ExpectedSeconds(const CampaignInputs& inputs) {
  constexpr std::uint64_t kMostTrials = 8;
  constexpr int kFrames = 10;
  const Campaign& campaign = inputs.Of();
  const std::uint64_t trials = std::min(kMostTrials, campaign.Points());
  Runner runner(inputs);
  double seconds = 0.0;
  for (std::uint64_t k = 0; k < trials; ++k) {
    const std::uint64_t point = k * campaign.Points() / trials;
    const int frames = campaign.SettingsAt(point).frames;
    int done = 0;
    const Clock::time_point start = Clock::now();
    try {
      runner.Run(point * campaign.repeats, [&] {
        ThrowIfInterrupted();
        if (++done == kFrames) throw Enough();
      });
    } catch (const Enough&) {
      seconds += SecondsSince(start) * frames / done;
      continue;
    }
    seconds += SecondsSince(start);
  }
  return seconds / static_cast<double>(trials) * static_cast<double>(campaign.Runs());
}

}  // namespace quen::workbench
