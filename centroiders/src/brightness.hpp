#pragma once

#include <cstdint>

#include "centroiders/src/pixels.hpp"
#include "common/simd/level.hpp"

namespace quen::centroiders {

/// The value of the brightest pixel of a rectangle that is not empty.
std::int32_t Largest(common::simd::Level level, const Pixels& pixels);

/// The `rank`-th brightest pixel's value: that many pixels reach it, and fewer exceed it.
///
/// @param rank   1 to the number of pixels
/// @param guess  where to look first; changes the time that it takes and nothing else
std::int32_t RankedValue(common::simd::Level level, const Pixels& pixels, std::size_t rank, std::int32_t guess);

/// Where the brightest pixel of a rectangle that is not empty lies; the mean position of the brightest ones where
/// several are equal.
Point BrightestPoint(common::simd::Level level, const Pixels& pixels);

}  // namespace quen::centroiders
