#pragma once

#include <cstdint>

/// @file
/// How values become pixels. Internal to the library; not installed.

namespace quen::shssim {

/// Truncates toward zero to a 32-bit integer. What does not fit, infinities and NaN give the most negative one, as the
/// processor's own conversion does.
inline std::int32_t TruncateToInt32(double value) {
  constexpr double kBeyond = 2147483648.0;  // 2³¹
  // Two selections, so that loops over pixels vectorise. The first takes care of NaN.
  const double below = value < kBeyond ? value : -kBeyond;
  return static_cast<std::int32_t>(below > -kBeyond - 1.0 ? below : -kBeyond);
}

/// The low 16 bits of the value truncated to a 32-bit integer: neither rounded nor clamped.
inline std::uint16_t TruncateToPixel(double value) { return static_cast<std::uint16_t>(TruncateToInt32(value)); }

}  // namespace quen::shssim
