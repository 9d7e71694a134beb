#pragma once

#include <vector>

#include "centroiders/src/pixels.hpp"
#include "common/simd/level.hpp"

namespace quen::centroiders {

/// Σ T(u, v) · p(x + u, y + v) over the template's pixels that lie in the rectangle, (u, v) from its middle.
///
/// @param values  the template, `size` · `size` numbers, row by row; `size` odd
/// @param x, y    where its middle lies, in pixels from the rectangle's corner; may be outside
double Correlate(common::simd::Level level, const Pixels& pixels, const std::vector<double>& values, std::size_t size,
                 std::ptrdiff_t x, std::ptrdiff_t y);

}  // namespace quen::centroiders
