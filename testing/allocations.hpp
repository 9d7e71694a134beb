#pragma once

#include <cstddef>

namespace quen::testing {

/// Number of times that operator new has been called in this process so far. Link testing/allocations.cpp, which
/// replaces it.
std::size_t Allocations();

/// Bytes of the largest block that operator new has been asked for, ever or since it was told to forget.
std::size_t LargestAllocation();
void ForgetLargestAllocation();

}  // namespace quen::testing
