#include "tools/quen-shs/src/cli/interruption.hpp"

#include <csignal>
#include <initializer_list>

namespace quen_shs {
namespace {

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): all that a signal handler may write to.
volatile std::sig_atomic_t noted = 0;

void Note(int signal) { noted = signal; }

}  // namespace

void NoteInterruptions() {
  struct sigaction action {};
  action.sa_handler = Note;  // NOLINT(cppcoreguidelines-pro-type-union-access)
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  for (const int signal : {SIGINT, SIGTERM}) sigaction(signal, &action, nullptr);
}

void ThrowIfInterrupted() {
  if (noted != 0) throw Interrupted();
}

void EndByInterruption() {
  struct sigaction action {};
  action.sa_handler = SIG_DFL;  // NOLINT(cppcoreguidelines-pro-type-union-access)
  sigaction(noted, &action, nullptr);
  static_cast<void>(raise(noted));
}

}  // namespace quen_shs
