#include <unistd.h>

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

}  // namespace

int main(int argc, char** argv) {
  try {
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
