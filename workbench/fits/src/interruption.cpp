#include "workbench/fits/interruption.hpp"

#include <poll.h>

#include <array>
#include <csignal>
#include <ctime>

namespace quen::workbench {
namespace {

constexpr std::array kSignals = {SIGINT, SIGTERM};

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): all that a signal handler may write to.
volatile std::sig_atomic_t noted = 0;

void Note(int signal) { noted = signal; }

bool IsIgnored(int signal) {
  struct sigaction action {};
  return sigaction(signal, nullptr, &action) == 0 &&
         action.sa_handler == SIG_IGN;  // NOLINT(cppcoreguidelines-pro-type-union-access)
}

/// Waits with signals blocked but for the wait itself: one that comes between the look and the wait would be missed.
void Wait(int descriptor, short events, const timespec* most) {
  sigset_t signals;
  sigset_t before;
  sigemptyset(&signals);
  for (const int signal : kSignals) sigaddset(&signals, signal);
  pthread_sigmask(SIG_BLOCK, &signals, &before);
  pollfd awaited = {descriptor, events, 0};
  if (noted == 0) static_cast<void>(ppoll(&awaited, 1, most, &before));
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  ThrowIfInterrupted();
}

}  // namespace

void NoteInterruptions() {
  struct sigaction action {};
  action.sa_handler = Note;  // NOLINT(cppcoreguidelines-pro-type-union-access)
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  for (const int signal : kSignals) {
    if (!IsIgnored(signal)) sigaction(signal, &action, nullptr);
  }
  static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
}

void ThrowIfInterrupted() {
  if (noted != 0) throw Interrupted();
}

void WaitFor(int descriptor, short events) { Wait(descriptor, events, nullptr); }

void WaitForAMoment() {
  constexpr timespec kMoment = {0, 20'000'000};
  constexpr int kNone = -1;
  Wait(kNone, 0, &kMoment);
}

Reprieve::Reprieve() : signal_(noted) { noted = 0; }

Reprieve::~Reprieve() {
  if (noted == 0) noted = signal_;
}

void EndByInterruption() {
  struct sigaction action {};
  action.sa_handler = SIG_DFL;  // NOLINT(cppcoreguidelines-pro-type-union-access)
  sigaction(noted, &action, nullptr);
  static_cast<void>(raise(noted));
}

}  // namespace quen::workbench
