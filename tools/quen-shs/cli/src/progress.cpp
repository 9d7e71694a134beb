#include "tools/quen-shs/cli/progress.hpp"

#include <fmt/format.h>

#include "workbench/fits/interruption.hpp"

namespace quen::tool {

Progress::Progress(int total, const char* unit) : total_(total), unit_(unit) {}

double Progress::Rate() const { return done_ / std::chrono::duration<double>(Clock::now() - start_).count(); }

void Progress::Step() {
  constexpr double kFew = 10.0;  // per second, of which decimals are told
  workbench::ThrowIfInterrupted();
  ++done_;
  if (!line_.IsDue()) return;
  const double rate = Rate();
  line_.Show(fmt::format("{} {} of {}, {:.0f} s left, {:.{}f} {}s/s", unit_, done_, total_, (total_ - done_) / rate,
                         rate, rate < kFew ? 2 : 0, unit_));
}

}  // namespace quen::tool
