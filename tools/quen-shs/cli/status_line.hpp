#pragma once

#include <chrono>
#include <string>

namespace quen::tool {

/// A line on standard error that is redrawn in place, cut to the terminal's width, and cleared at the end. None where
/// standard error is not a terminal.
class StatusLine {
 public:
  StatusLine();
  ~StatusLine();
  StatusLine(const StatusLine&) = delete;
  StatusLine& operator=(const StatusLine&) = delete;
  StatusLine(StatusLine&&) = delete;
  StatusLine& operator=(StatusLine&&) = delete;

  [[nodiscard]] bool IsOnTerminal() const { return on_terminal_; }
  /// Whether there is a line, and what it shows is old enough to be replaced.
  [[nodiscard]] bool IsDue() const;
  void Show(const std::string& text);
  /// Makes room for something else.
  void Clear() const;

 private:
  using Clock = std::chrono::steady_clock;

  bool on_terminal_;
  Clock::time_point shown_ = Clock::now();
};

}  // namespace quen::tool
