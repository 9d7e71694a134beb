#pragma once

#include <cstdint>
#include <limits>

namespace quen::shssim {

/// Truncates toward zero to a 32-bit integer. What does not fit, infinities and NaN give the most negative one, as the
/// processor's own conversion does.
inline std::int32_t TruncateToInt32(double value) {
  constexpr double kBeyond = 2147483648.0;  // 2³¹
  const bool fits = value > -kBeyond - 1.0 && value < kBeyond;
  return fits ? static_cast<std::int32_t>(value) : std::numeric_limits<std::int32_t>::min();
}

/// The low 16 bits of the value truncated to a 32-bit integer: neither rounded nor clamped.
inline std::uint16_t TruncateToPixel(double value) { return static_cast<std::uint16_t>(TruncateToInt32(value)); }

}  // namespace quen::shssim
