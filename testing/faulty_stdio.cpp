#include "testing/faulty_stdio.hpp"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace quen::testing {
namespace {

struct Plan {
  bool armed = false;
  Fault fault = Fault::kWriteError;
  std::size_t nth = 0;
  std::size_t calls = 0;
};

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): the stand-ins have nowhere else to look.
Plan g_plan;

bool Concerns(bool write) {
  const bool of_writes = g_plan.fault == Fault::kWriteError || g_plan.fault == Fault::kFullDisk;
  return g_plan.armed && of_writes == write;
}

/// What ferror() looks at; the C library has no function that sets it.
void SetError(std::FILE* file) {
  constexpr int kErrorSeen = 0x20;
  file->_flags |= kErrorSeen;
}

/// Counts a call; whether it is to fail.
bool Fails() {
  ++g_plan.calls;
  if (g_plan.nth == 0) return false;
  return g_plan.fault == Fault::kFullDisk ? g_plan.calls >= g_plan.nth : g_plan.calls == g_plan.nth;
}

}  // namespace

FaultyDisk::FaultyDisk(Fault fault, std::size_t nth) { g_plan = {true, fault, nth, 0}; }
FaultyDisk::~FaultyDisk() { g_plan.armed = false; }
std::size_t FaultyDisk::Calls() { return g_plan.calls; }

}  // namespace quen::testing

// NOLINTBEGIN(cppcoreguidelines-pro-type-reinterpret-cast): what dlsym returns.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the system's header has reserved ones.
extern "C" std::size_t fwrite(const void* data, std::size_t size, std::size_t count, std::FILE* file) {
  static const auto real = reinterpret_cast<decltype(&fwrite)>(dlsym(RTLD_NEXT, "fwrite"));
  using namespace quen::testing;
  if (Concerns(true) && Fails()) {
    errno = g_plan.fault == Fault::kFullDisk ? ENOSPC : EIO;
    SetError(file);
    return 0;
  }
  return real(data, size, count, file);
}

extern "C" std::size_t fread(void* data, std::size_t size, std::size_t count, std::FILE* file) {
  static const auto real = reinterpret_cast<decltype(&fread)>(dlsym(RTLD_NEXT, "fread"));
  using namespace quen::testing;
  if (Concerns(false) && Fails()) {
    errno = EIO;
    SetError(file);
    return g_plan.fault == Fault::kShortRead ? real(data, size, count / 2, file) : 0;
  }
  return real(data, size, count, file);
}

extern "C" ssize_t write(int descriptor, const void* data, std::size_t size) {
  static const auto real = reinterpret_cast<decltype(&write)>(dlsym(RTLD_NEXT, "write"));
  using namespace quen::testing;
  if (Concerns(true) && Fails()) {
    errno = g_plan.fault == Fault::kFullDisk ? ENOSPC : EIO;
    return -1;
  }
  return real(descriptor, data, size);
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
// NOLINTEND(cppcoreguidelines-pro-type-reinterpret-cast)
