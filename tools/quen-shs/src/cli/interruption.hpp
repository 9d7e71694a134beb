#pragma once

#include <exception>

/// @file
/// Ctrl-C: a job that is interrupted ends at its next frame, takes its unfinished files away, and is then seen by the
/// shell as ended by the signal. A second Ctrl-C ends it at once.

namespace quen_shs {

class Interrupted : public std::exception {
 public:
  [[nodiscard]] const char* what() const noexcept override { return "interrupted; no file was written"; }
};

/// From now on SIGINT and SIGTERM are noted.
void NoteInterruptions();

/// @throws Interrupted  a signal has come
void ThrowIfInterrupted();

/// Ends the process by the signal that has come.
void EndByInterruption();

}  // namespace quen_shs
