#include <sys/time.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz/damage.hpp"

// Runs a fuzzer over the files of a folder, and over each of them with every single damage; built by any compiler.
//     NAME_replay FOLDER
// The input that ends it, by a crash, a broken expectation or more than three seconds of processor time, is left in the
// file replay_input.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using quen::fuzz::Bytes;

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): a signal handler sees nothing else.
const Bytes* g_input = nullptr;

/// Keeps the input at fault, then lets the signal do what it does.
void KeepInput(int signal) {
  quen::fuzz::WriteFile("replay_input", *g_input);
  static_cast<void>(std::signal(signal, SIG_DFL));
  static_cast<void>(std::raise(signal));
}

void RunOne(const Bytes& input) {
  constexpr itimerval kLimit = {{0, 0}, {3, 0}};
  g_input = &input;
  setitimer(ITIMER_PROF, &kLimit, nullptr);
  LLVMFuzzerTestOneInput(input.data(), input.size());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  for (const int signal : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGPROF})
    static_cast<void>(std::signal(signal, KeepInput));
  std::size_t inputs = 0;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
    std::ifstream stream(entry.path(), std::ios::binary);
    const Bytes file{std::istreambuf_iterator<char>(stream), {}};
    RunOne(file);
    const std::size_t damages = quen::fuzz::CountDamages(file);
    for (std::size_t which = 0; which < damages; ++which) RunOne(quen::fuzz::Damaged(file, which));
    inputs += 1 + damages;
  }
  std::printf("%zu inputs\n", inputs);
  return inputs > 0 ? 0 : 1;
}
