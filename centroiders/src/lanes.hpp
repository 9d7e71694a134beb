#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "common/simd/level.hpp"

/// @file
/// Vectors of W numbers, for code that is compiled once per level with as many as the level's registers hold. They go
/// by reference: functions that are compiled for any processor must not take or return them.

namespace quen::centroiders {

template <std::size_t W>
using Doubles __attribute__((vector_size(8 * W))) = double;
/// Of numbers of type T, and of whole numbers of their size.
template <typename T, std::size_t W>
using Lanes __attribute__((vector_size(sizeof(T) * W))) = T;
template <typename T, std::size_t W>
using WordsOf __attribute__((vector_size(sizeof(T) * W))) =
    std::conditional_t<sizeof(T) == sizeof(std::int64_t), std::int64_t, std::int32_t>;
template <std::size_t W>
using Words __attribute__((vector_size(8 * W))) = std::int64_t;
template <std::size_t W>
using Ints32 __attribute__((vector_size(4 * W))) = std::int32_t;
template <std::size_t W>
using Floats __attribute__((vector_size(4 * W))) = float;

/// Whole numbers from `first` on.
template <std::size_t W>
QUEN_ALWAYS_INLINE void Count(std::size_t first, Doubles<W>& numbers) {
  for (std::size_t lane = 0; lane < W; ++lane) numbers[lane] = static_cast<double>(lane);
  numbers += static_cast<double>(first);
}

/// W numbers as doubles. From an array: GCC 12 widens its elements in one step.
template <std::size_t W, typename T>
QUEN_ALWAYS_INLINE void Widen(const T* numbers, Doubles<W>& wide) {
  std::array<double, W> widened;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled at once
  for (std::size_t lane = 0; lane < W; ++lane) widened[lane] = static_cast<double>(numbers[lane]);
  std::memcpy(&wide, &widened, sizeof(wide));
}

/// Of sums over every eighth column or row.
QUEN_ALWAYS_INLINE double SumOfEight(const double* t) {
  return ((t[0] + t[1]) + (t[2] + t[3])) + ((t[4] + t[5]) + (t[6] + t[7]));
}

}  // namespace quen::centroiders
