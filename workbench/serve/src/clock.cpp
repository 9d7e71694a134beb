#include "workbench/serve/clock.hpp"

#include <algorithm>

#include "stream/writer.hpp"
#include "workbench/fits/interruption.hpp"

namespace quen::workbench {
namespace {

using std::chrono::nanoseconds;
using std::chrono::seconds;

std::timespec AsTimespec(Time time) {
  const auto whole = std::chrono::floor<seconds>(time);
  return {whole.count(), (time - whole).count()};
}

Time AsTime(const std::timespec& time) { return seconds(time.tv_sec) + nanoseconds(time.tv_nsec); }

}  // namespace

Time MonotonicClock::Now() const {
  std::timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return AsTime(now);
}

void MonotonicClock::WaitUntil(Time time) {
  constexpr Time kLongestSleep = std::chrono::milliseconds(100);  // a signal may come just before one
  for (Time now = Now(); now < time; now = Now()) {
    ThrowIfInterrupted();
    const std::timespec until = AsTimespec(std::min(time, now + kLongestSleep));
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
  }
  ThrowIfInterrupted();
}

std::timespec TaiAt(Time time, const Clock& clock) {
  return AsTimespec(AsTime(quen::stream::Now()) + (time - clock.Now()));
}

}  // namespace quen::workbench
