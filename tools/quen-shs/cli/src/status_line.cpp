#include "tools/quen-shs/cli/status_line.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace quen::tool {
namespace {

constexpr auto kInterval = std::chrono::milliseconds(200);
constexpr const char* kClearLine = "\r\033[K";

/// Columns of the terminal; many where it does not say.
int TerminalWidth() {
  winsize size{};
  const bool is_known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return is_known ? size.ws_col : 80;
}

}  // namespace

StatusLine::StatusLine() : on_terminal_(isatty(STDERR_FILENO) == 1) {}

StatusLine::~StatusLine() { Clear(); }

bool StatusLine::IsDue() const { return on_terminal_ && Clock::now() - shown_ >= kInterval; }

void StatusLine::Show(const std::string& text) {
  shown_ = Clock::now();
  // The last column stays free: some terminals go to the next line after it.
  static_cast<void>(std::fprintf(stderr, "%s%.*s", kClearLine, std::max(TerminalWidth() - 1, 0), text.c_str()));
  static_cast<void>(std::fflush(stderr));
}

void StatusLine::Clear() const {
  if (on_terminal_) static_cast<void>(std::fputs(kClearLine, stderr));
}

}  // namespace quen::tool
