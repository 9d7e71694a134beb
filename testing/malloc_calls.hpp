#pragma once

#include <cstddef>
#include <optional>

namespace quen::testing {

/// Number of times that malloc has been called in this process so far, by operator new or without it. Link
/// testing/malloc_calls.cpp, which stands in for it. Nothing under a sanitizer, which has a malloc of its own.
std::optional<std::size_t> MallocCalls();

}  // namespace quen::testing
