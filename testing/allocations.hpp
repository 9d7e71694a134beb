#pragma once

#include <cstddef>

namespace quen::testing {

/// Number of times that operator new has been called in this process so far. Link testing/allocations.cpp, which
/// replaces it.
std::size_t Allocations();

}  // namespace quen::testing
