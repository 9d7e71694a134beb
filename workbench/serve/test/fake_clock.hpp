#pragma once

#include <algorithm>
#include <functional>

#include "workbench/serve/clock.hpp"

namespace quen::testing {

/// A clock that goes on where somebody waits for it.
class FakeClock : public workbench::Clock {
 public:
  [[nodiscard]] workbench::Time Now() const override { return now_; }
  void WaitUntil(workbench::Time time) override { now_ = std::max(now_, time); }
  void Pass(workbench::Time time) { now_ += time; }

 private:
  workbench::Time now_ = std::chrono::seconds(1000);
};

}  // namespace quen::testing
