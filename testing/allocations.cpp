#include "testing/allocations.hpp"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables): operator new has nowhere else to count.
std::atomic<std::size_t> g_allocations = 0;
std::atomic<std::size_t> g_largest = 0;
std::atomic<std::size_t> g_limit = SIZE_MAX;
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)

}  // namespace

std::size_t quen::testing::Allocations() { return g_allocations; }

std::size_t quen::testing::LargestAllocation() { return g_largest; }

void quen::testing::ForgetLargestAllocation() { g_largest = 0; }

quen::testing::ScarceMemory::ScarceMemory(std::size_t largest) { g_limit = largest; }
quen::testing::ScarceMemory::~ScarceMemory() { g_limit = SIZE_MAX; }

// NOLINTBEGIN(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory): this is where memory comes from.
void* operator new(std::size_t size) {
  ++g_allocations;
  if (size > g_limit) throw std::bad_alloc();
  std::size_t largest = g_largest;
  while (size > largest && !g_largest.compare_exchange_weak(largest, size)) {
  }
  if (void* const memory = std::malloc(size == 0 ? 1 : size); memory != nullptr) return memory;
  throw std::bad_alloc();
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  try {
    return operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
// NOLINTEND(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory)
