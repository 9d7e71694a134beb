#pragma once

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>

#include "detector/src/philox.hpp"

/// @file
/// Pairs of standard normal deviates (G. E. P. Box and M. E. Muller 1958): for u uniform in (0, 1) and a uniform
/// direction a,
///
///     r = √(−2 ln u),   first = r · cos a,   second = r · sin a.
///
/// u has 31 bits, and those below 2⁻²⁰, which the tail beyond five deviations is made of, have 32 more: it goes on to
/// nine. The direction has 32 bits: an angle in the first octant, and three for which octant it is reflected into.
///
/// All in single precision: a deviate is right to 2⁻²¹ of itself, and its steps of 2⁻²⁴ are far finer than what 10⁸
/// draws can tell. The fast form does the same operations in the same order.

namespace quen::detector {

struct NormalPair {
  float first;
  float second;
};

namespace normal {

inline constexpr std::uint32_t kTail = 1U << 11;         ///< below it, 31 bits are too few
inline constexpr std::int32_t kRootOfHalf = 0x3f3504f3;  ///< the bits of √½

/// (ln(1 + f) − f + f²/2) / f³ for √½ ≤ 1 + f ≤ √2, to 3·10⁻⁸; interpolated at Chebyshev's points, as those below.
inline constexpr std::array<float, 9> kLog = {0.3333333118F,  -0.2499999696F, 0.2000071575F,
                                              -0.1666780232F, 0.1424905765F,  -0.1242568733F,
                                              0.1168541992F,  -0.1147973385F, 0.06971611471F};
inline constexpr float kLn2 = 0.693147181F;

/// sin(π/4 · y) / y and cos(π/4 · y) in powers of y², 0 ≤ y < 1, to 3·10⁻⁹.
inline constexpr std::array<float, 4> kSine = {0.785398161F, -0.08074543471F, 0.002490006801F, -3.595429073e-5F};
inline constexpr std::array<float, 5> kCosine = {1.0F, -0.3084251352F, 0.01585432523F, -0.0003259385859F,
                                                 3.529797134e-6F};

}  // namespace normal

/// The pair of a radius and a direction. u from 2⁻⁶⁴ to 1.
inline NormalPair NormalsOf(float u, std::uint32_t direction) {
  using namespace normal;  // NOLINT(google-build-using-namespace): the constants above
  const auto bits = std::bit_cast<std::int32_t>(u);
  const std::int32_t exponent = (bits - kRootOfHalf) >> 23;
  const float f = std::bit_cast<float>(bits - exponent * (1 << 23)) - 1.0F;
  const float f2 = f * f;
  const float f4 = f2 * f2;
  const float low =
      (kLog[1] * f + kLog[0]) + (kLog[3] * f + kLog[2]) * f2;  // in pairs, which is faster than one by one
  const float high = (kLog[5] * f + kLog[4]) + (kLog[7] * f + kLog[6]) * f2;
  const float series = low + (high + kLog[8] * f4) * f4;
  const float log = (f2 * (series * f - 0.5F) + f) + static_cast<float>(exponent) * kLn2;
  const float square = -2.0F * log;
  const float r = std::sqrt(square > 0.0F ? square : 0.0F);

  const float y = static_cast<float>(static_cast<std::int32_t>(direction & 0x1fffffffU)) * 0x1p-29F;
  const float y2 = y * y;
  const float sine = (((kSine[3] * y2 + kSine[2]) * y2 + kSine[1]) * y2 + kSine[0]) * y;
  const float cosine = (((kCosine[4] * y2 + kCosine[3]) * y2 + kCosine[2]) * y2 + kCosine[1]) * y2 + kCosine[0];
  const bool swapped = (direction >> 29 & 1U) != 0;
  const float first = r * (swapped ? sine : cosine);
  const float second = r * (swapped ? cosine : sine);
  return {(direction >> 31 & 1U) != 0 ? -first : first, (direction >> 30 & 1U) != 0 ? -second : second};
}

/// Whether a first word needs further bits.
inline bool IsInTail(std::uint32_t word) { return word >> 1 < normal::kTail; }

/// u of a first word outside the tail.
inline float UniformOf(std::uint32_t word) {
  return (static_cast<float>(static_cast<std::int32_t>(word >> 1)) + 0.5F) * 0x1p-31F;
}

/// u of a first word in the tail and 32 more bits.
inline float UniformOf(std::uint32_t word, std::uint32_t more) {
  return static_cast<float>(((word >> 1) * 0x1p32 + more + 0.5) * 0x1p-63);
}

}  // namespace quen::detector
