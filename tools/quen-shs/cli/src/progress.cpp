#include "tools/quen-shs/cli/progress.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>

#include "workbench/fits/interruption.hpp"

namespace quen::tool {
namespace {

constexpr double kFew = 10.0;  // per second, of which decimals are told
constexpr auto kInterval = std::chrono::milliseconds(200);
constexpr const char* kClearLine = "\r\033[K";

/// Columns of the terminal; many where it does not say.
int TerminalWidth() {
  winsize size{};
  const bool is_known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return is_known ? size.ws_col : 80;
}

}  // namespace

Progress::Progress(int total, const char* unit)
    : total_(total), unit_(unit), on_terminal_(isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() {
  if (on_terminal_) static_cast<void>(std::fputs(kClearLine, stderr));
}

double Progress::Rate() const { return done_ / std::chrono::duration<double>(Clock::now() - start_).count(); }

void Progress::Step() {
  workbench::ThrowIfInterrupted();
  ++done_;
  if (!on_terminal_ || Clock::now() - shown_ < kInterval) return;
  shown_ = Clock::now();
  const double rate = Rate();
  std::array<char, 100> line{};
  static_cast<void>(std::snprintf(line.data(), line.size(), "%s %d of %d, %.0f s left, %.*f %ss/s", unit_, done_,
                                  total_, (total_ - done_) / rate, rate < kFew ? 2 : 0, rate, unit_));
  // The last column stays free: some terminals go to the next line after it.
  static_cast<void>(std::fprintf(stderr, "%s%.*s", kClearLine, std::max(TerminalWidth() - 1, 0), line.data()));
  static_cast<void>(std::fflush(stderr));
}

}  // namespace quen::tool
