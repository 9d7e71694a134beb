#pragma once

#include <exception>

/// @file
/// Ctrl-C: a job that is interrupted ends at its next frame, or where it waits for a pipe, removes its unfinished
/// files, and ends so that the shell sees the signal as the reason. A second Ctrl-C ends it at once. A signal that is
/// ignored when the tool starts, as nohup and a shell's background jobs have it, stays ignored.

namespace quen::workbench {

class Interrupted : public std::exception {
 public:
  explicit Interrupted(const char* text = "interrupted; no file was written") : text_(text) {}
  [[nodiscard]] const char* what() const noexcept override { return text_; }

 private:
  const char* text_;
};

/// From now on SIGINT and SIGTERM are noted, and writing to a file that has reached its size limit is an error (EFBIG)
/// instead of the end of the process.
void NoteInterruptions();

/// @throws Interrupted  a signal has come
void ThrowIfInterrupted();

/// Waits until a descriptor is ready, or something is wrong with it, which the next read or write tells.
/// @param events  POLLIN or POLLOUT
/// @throws Interrupted  a signal has come, before or meanwhile
void WaitFor(int descriptor, short events);

/// Waits for a moment, in which other processes may go on.
/// @throws Interrupted  a signal has come, before or meanwhile
void WaitForAMoment();

/// While it lives, a signal that has come before ends nothing: what is left to be said can be said. Afterwards it does.
class Reprieve {
 public:
  Reprieve();
  ~Reprieve();
  Reprieve(const Reprieve&) = delete;
  Reprieve& operator=(const Reprieve&) = delete;
  Reprieve(Reprieve&&) = delete;
  Reprieve& operator=(Reprieve&&) = delete;

 private:
  int signal_;  ///< 0: none
};

/// Ends the process by the signal that has come.
void EndByInterruption();

}  // namespace quen::workbench
