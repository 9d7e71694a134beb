#pragma once

#include <cstddef>

namespace quen::testing {

/// Number of times that operator new has been called in this process so far. Link testing/allocations.cpp, which
/// replaces it.
std::size_t Allocations();

/// Bytes of the largest block that operator new has given, ever or since it was told to forget.
std::size_t LargestAllocation();
void ForgetLargestAllocation();

/// While one lives, operator new has no larger blocks to give than this.
class ScarceMemory {
 public:
  explicit ScarceMemory(std::size_t largest);
  ~ScarceMemory();
  ScarceMemory(const ScarceMemory&) = delete;
  ScarceMemory& operator=(const ScarceMemory&) = delete;
  ScarceMemory(ScarceMemory&&) = delete;
  ScarceMemory& operator=(ScarceMemory&&) = delete;
};

}  // namespace quen::testing
