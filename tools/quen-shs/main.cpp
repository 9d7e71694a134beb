#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>

#include "tools/quen-shs/cli/command_line.hpp"
#include "tools/quen-shs/cli/output.hpp"
#include "tools/quen-shs/verbs/verbs.hpp"
#include "workbench/fits/interruption.hpp"
#include "workbench/fits/transfer.hpp"

namespace {

constexpr int kFailed = 1;

/// What went wrong, in one sentence.
std::string Reason(const std::exception& error) {
  const auto* const file_error = dynamic_cast<const std::filesystem::filesystem_error*>(&error);
  if (file_error == nullptr) return error.what();
  return "cannot make " + file_error->path1().string() + ": " + file_error->code().message();
}

/// Where no handler of ours is yet: the logging library starts threads before main does.
[[noreturn]] void EndForWantOfMeans() {
  try {
    if (const std::exception_ptr error = std::current_exception()) std::rethrow_exception(error);
  } catch (const std::bad_alloc&) {
    quen::tool::SayOutOfMemory();
    _exit(kFailed);
  } catch (const std::system_error&) {
    static_cast<void>(std::fputs(
        "quen-shs: cannot start: the system gives no threads, or not the memory for them; allow this process more\n",
        stderr));
    _exit(kFailed);
  } catch (...) {  // a fault of ours: as ever
  }
  std::abort();
}

// Before the sanitizers of sanitized builds are there.
__attribute__((no_sanitize("address", "undefined"))) void ExpectWant() { std::set_terminate(&EndForWantOfMeans); }

// The loader calls what stands here before anything of the libraries.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): its section can be written to.
__attribute__((section(".preinit_array"), used)) void (*before_libraries)() = &ExpectWant;

constexpr std::size_t kStack = 512UL * 1024UL;  // bytes: the deepest calls, of products of matrices, take 300 KB

[[gnu::noinline]] void TouchStack() {
  constexpr std::size_t kPage = 4096;
  std::array<volatile char, kStack> room;  // NOLINT(cppcoreguidelines-pro-type-member-init): touched page by page
  for (std::size_t end = room.size(); end > 0; end -= kPage) room[end - 1] = 0;
}

/// The stack grows as it is used, and a process that has no memory left for that ends without a word. So it is made as
/// large as it will be while that can still be told, unless it was given a small one.
void ClaimStack() {
  rlimit limit{};
  if (getrlimit(RLIMIT_STACK, &limit) != 0 || limit.rlim_cur < 2 * kStack) return;
  void* const as_much = mmap(nullptr, kStack, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (as_much == MAP_FAILED) throw std::bad_alloc();
  munmap(as_much, kStack);
  TouchStack();
}

}  // namespace

int main(int argc, char** argv) {
  try {
    ClaimStack();
    quen::workbench::OccupyStandardDescriptors();
    quen::workbench::NoteInterruptions();
    quen::tool::CommandLine line;
    quen::tool::AddVerbs(line);
    return line.Run(argc, argv);
  } catch (const quen::workbench::Interrupted& interruption) {
    quen::tool::Say(interruption.what());
    quen::workbench::EndByInterruption();
  } catch (const std::bad_alloc&) {
    quen::tool::SayOutOfMemory();
  } catch (const std::length_error&) {  // of a container: more than any memory
    quen::tool::SayOutOfMemory();
  } catch (const std::exception& error) {
    quen::tool::Say(Reason(error));
  }
  return kFailed;
}
