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

/// Ends a trial.
class Enough : public std::exception {};

/// Goes through the runs of a shard that are to be done, in their order.
class ToDo {
 public:
  ToDo(const ResultFiles& results, const ExecutionOptions& options) : results_(results), options_(options) {}

  /// The next run, and what is known of it; none when all are done.
  std::optional<std::pair<std::uint64_t, RunRecord>> Next() {
    while (true) {
      for (; at_ < records_.size(); ++at_) {
        const std::uint64_t run = first_ + at_;
        if (!options_.shard.Has(run) || !IsToDo(records_[at_], options_.retry_failed)) continue;
        return std::pair(run, std::move(records_[at_++]));
      }
      first_ += records_.size();
      if (first_ >= results_.Runs()) return std::nullopt;
      records_ = results_.Read(first_, kRunsAtOnce);
      at_ = 0;
    }
  }

 private:
  const ResultFiles& results_;
  const ExecutionOptions& options_;
  std::uint64_t first_ = 0;
  std::size_t at_ = 0;
  std::vector<RunRecord> records_;
};

/// What the threads share.
class Crew {
 public:
  Crew(const CampaignFolder& folder, const ExecutionOptions& options, ExecutionCounts& counts,
       const std::function<void()>& after_run)
      : to_do_(folder.results, options),
        writer_(folder.results, options.shard),
        at_work_(folder.name, options.jobs),
        counts_(counts),
        after_run_(after_run) {}

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
  void End() {
    writer_.Settle();
    if (failure_) std::rethrow_exception(failure_);
  }

 private:
  std::optional<std::uint64_t> Next() {
    const std::scoped_lock lock(mutex_);
    if (is_over_) return std::nullopt;
    const auto next = to_do_.Next();
    return next ? std::optional(next->first) : std::nullopt;
  }

  void Count(RunState state) {
    constexpr double kInterval = 5.0;  // seconds that a machine that stops may lose
    const std::scoped_lock lock(mutex_);
    ++counts_.finished;
    counts_.failed += state == RunState::kFailed ? 1U : 0U;
    at_work_.Tell(counts_.finished);
    if (SecondsSince(settled_) > kInterval) {
      writer_.Settle();
      settled_ = Clock::now();
    }
    after_run_();
  }

  std::mutex mutex_;
  ToDo to_do_;
  ResultFiles::Writer writer_;
  AtWork at_work_;
  ExecutionCounts& counts_;
  const std::function<void()>& after_run_;
  Clock::time_point settled_ = Clock::now();
  std::atomic<bool> is_over_ = false;
  std::exception_ptr failure_;
};

}  // namespace

ExecutionCounts WhatIsToDo(const CampaignFolder& folder, const ExecutionOptions& options) {
  ExecutionCounts counts;
  ToDo to_do(folder.results, options);
  while (const auto next = to_do.Next()) {
    ThrowIfInterrupted();
    const auto& [run, record] = *next;
    ++counts.to_do;
    if (record.state != RunState::kDamaged) continue;
    if (counts.damaged++ == 0) counts.first_damaged = fmt::format("run {} in {}", run, record.file);
  }
  return counts;
}

void Execute(const CampaignInputs& inputs, const CampaignFolder& folder, const ExecutionOptions& options,
             ExecutionCounts& counts, const std::function<void()>& after_run) {
  std::deque<Runner> runners;  // made by one thread: the library's files are not for several
  const auto jobs = std::min<std::uint64_t>(static_cast<std::uint64_t>(options.jobs), counts.to_do);
  for (std::uint64_t k = 0; k < jobs; ++k) runners.emplace_back(inputs);
  Crew crew(folder, options, counts, after_run);
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
  crew.End();
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
