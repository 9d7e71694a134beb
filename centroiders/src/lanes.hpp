#pragma once

#include <cstddef>
#include <cstdint>

/// @file
/// Vectors of W numbers, for code that is compiled once per level with as many as the level's registers hold. They go
/// by reference: functions that are compiled for any processor must not take or return them.

namespace quen::centroiders {

template <std::size_t W>
using Doubles __attribute__((vector_size(8 * W))) = double;
template <std::size_t W>
using Words __attribute__((vector_size(8 * W))) = std::int64_t;
template <std::size_t W>
using Floats __attribute__((vector_size(4 * W))) = float;

}  // namespace quen::centroiders
