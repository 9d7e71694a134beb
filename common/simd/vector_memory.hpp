#pragma once

#include <cstring>

#include "common/simd/level.hpp"

/// @file
/// Vectors, an extension that GCC and Clang share, from memory and back, wherever it is aligned. Vectors go by
/// reference: functions that are compiled for any processor must not take or return them. Internal to the library.

namespace quen::common::simd {

template <typename Vector, typename Element>
QUEN_ALWAYS_INLINE void Load(Vector& vector, const Element* from) {
  std::memcpy(&vector, from, sizeof(vector));
}

template <typename Vector, typename Element>
QUEN_ALWAYS_INLINE void Store(const Vector& vector, Element* to) {
  std::memcpy(to, &vector, sizeof(vector));
}

}  // namespace quen::common::simd
