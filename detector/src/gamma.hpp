#pragma once

#include <cstdint>

#include "detector/src/philox.hpp"

namespace quen::detector {

/// A number of the gamma distribution with this shape > 0 and scale 1, by rejection (G. Marsaglia and W. W. Tsang, "A
/// simple method for generating gamma variables", 2000): as many draws as it takes, all of one pixel's own.
///
/// A shape below 1 is that of one greater, times u^(1/shape).
double GammaNumber(const Stream& stream, std::uint32_t pixel, double shape);

}  // namespace quen::detector
