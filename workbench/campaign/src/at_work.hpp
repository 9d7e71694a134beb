#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "workbench/fits/descriptor.hpp"

namespace quen::workbench {

/// What a process tells others while it works on a campaign: a small file in the campaign's folder that is locked as
/// long as the process lives, and removed when it ends. It is for people: nothing depends on it, and where it cannot be
/// made there is none.
class AtWork {
 public:
  AtWork(const std::string& folder, int jobs);
  ~AtWork();
  AtWork(const AtWork&) = delete;
  AtWork& operator=(const AtWork&) = delete;
  AtWork(AtWork&&) = delete;
  AtWork& operator=(AtWork&&) = delete;

  /// Every second at the most.
  void Tell(std::uint64_t finished);

 private:
  using Clock = std::chrono::steady_clock;

  void Write(std::uint64_t finished);

  int jobs_;
  std::string path_;
  Descriptor file_;
  Clock::time_point start_ = Clock::now();
  Clock::time_point told_ = start_;
};

/// What a process has told.
struct Worker {
  int jobs = 0;
  std::uint64_t finished = 0;
  double seconds = 0.0;  ///< in which it has finished them
};

/// Those that live.
std::vector<Worker> WorkersIn(const std::string& folder);

}  // namespace quen::workbench
