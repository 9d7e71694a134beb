#pragma once

#include <cstddef>
#include <cstdint>

#include "common/simd/level.hpp"

/// @file
/// Vectors of W numbers, for code that is compiled once per level with as many as the level's registers hold. They go
/// by reference: functions that are compiled for any processor must not take or return them.

namespace quen::centroiders {

template <std::size_t W>
using Doubles __attribute__((vector_size(8 * W))) = double;
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

/// Of sums over every eighth column or row.
QUEN_ALWAYS_INLINE double SumOfEight(const double* t) {
  return ((t[0] + t[1]) + (t[2] + t[3])) + ((t[4] + t[5]) + (t[6] + t[7]));
}

}  // namespace quen::centroiders
