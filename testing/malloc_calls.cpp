#include "testing/malloc_calls.hpp"

#include <atomic>

#if defined(QUEN_SANITIZED)

std::optional<std::size_t> quen::testing::MallocCalls() { return std::nullopt; }

#else

namespace {
std::atomic<std::size_t> g_calls = 0;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)
}  // namespace

std::optional<std::size_t> quen::testing::MallocCalls() { return g_calls; }

extern "C" {
void* LibrarysMalloc(std::size_t size) __asm__("__libc_malloc");  // the C library's own name for it

void* malloc(std::size_t size) noexcept {
  ++g_calls;
  return LibrarysMalloc(size);
}
}

#endif
