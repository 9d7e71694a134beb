#pragma once

#include <cstddef>
#include <cstring>

namespace quen::testing {

/// Where a member is in its object.
template <typename T, typename M>
std::size_t Offset(M T::*member) {
  std::ptrdiff_t offset = -1;  // which is what a pointer to a data member holds
  static_assert(sizeof(member) == sizeof(offset));
  std::memcpy(&offset, &member, sizeof(offset));
  return static_cast<std::size_t>(offset);
}

}  // namespace quen::testing
