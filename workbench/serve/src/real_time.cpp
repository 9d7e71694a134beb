#include "workbench/serve/real_time.hpp"

#include <fmt/format.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>

#include <cerrno>
#include <system_error>

namespace quen::workbench {
namespace {

std::string NotDone(const std::string& what) {
  return fmt::format("{}: {}; it goes on without", what, std::generic_category().message(errno));
}

}  // namespace

std::string TakeRealTimePriority(int priority) {
  sched_param parameters = {};
  parameters.sched_priority = priority;
  constexpr pid_t kThisThread = 0;
  if (sched_setscheduler(kThisThread, SCHED_FIFO, &parameters) != 0) {
    return NotDone(fmt::format("no real-time priority {}", priority));
  }
  return mlockall(MCL_CURRENT | MCL_FUTURE) == 0 ? "" : NotDone("memory is not locked");
}

std::string StayOnProcessor(int processor) {
  cpu_set_t processors;
  CPU_ZERO(&processors);
  CPU_SET(static_cast<std::size_t>(processor), &processors);
  constexpr pid_t kThisThread = 0;
  if (sched_setaffinity(kThisThread, sizeof(processors), &processors) == 0) return "";
  return NotDone(fmt::format("not on processor {} alone", processor));
}

void AskForExactWaking() {
  constexpr unsigned long kNanosecond = 1;
  prctl(PR_SET_TIMERSLACK, kNanosecond);
}

}  // namespace quen::workbench
