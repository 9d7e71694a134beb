#include "tools/quen-shs/src/progress.hpp"

#include <unistd.h>

#include <cstdio>

namespace quen_shs {
namespace {

constexpr auto kInterval = std::chrono::milliseconds(200);
constexpr const char* kClearLine = "\r\033[K";

}  // namespace

Progress::Progress(int total) : total_(total), on_terminal_(isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() {
  if (on_terminal_) static_cast<void>(std::fputs(kClearLine, stderr));
}

double Progress::Rate(int done) const { return done / std::chrono::duration<double>(Clock::now() - start_).count(); }

void Progress::Show(int done) {
  if (!on_terminal_ || Clock::now() - shown_ < kInterval) return;
  shown_ = Clock::now();
  const double rate = Rate(done);
  static_cast<void>(std::fprintf(stderr, "%sframe %d of %d, %.0f frames/s, %.0f s left", kClearLine, done, total_, rate,
                                 (total_ - done) / rate));
  static_cast<void>(std::fflush(stderr));
}

}  // namespace quen_shs
