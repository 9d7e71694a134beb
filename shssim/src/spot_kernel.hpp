#pragma once

#include <cstddef>
#include <cstdint>

#include "common/simd/level.hpp"
#include "shssim/src/noise.hpp"

namespace quen::shssim {

/// A region and the centre of its spot, in pixels of the frame.
struct Spot {
  std::size_t x_low;
  std::size_t y_low;
  std::size_t width;
  std::size_t height;
  double cx;
  double cy;
};

/// Whether the vectorised kernel can draw a spot: a region of at most 64 × 64 pixels, none farther from the centre than
/// 48 pixels along either axis, and noise of at most ±2³⁰. False where the centre is not finite.
bool IsNear(const Spot& spot, const Noise& noise);

/// Draws a near spot with its noise into both frames (pointers to pixel (0, 0), 840 pixels per row), by the kernel of a
/// level above kPlain.
/// @return  the level of the code that ran
common::simd::Level DrawNearSpot(common::simd::Level level, const Spot& spot, Noise& noise, double* values,
                                 std::uint16_t* pixels);

/// What the kernel relies on: std::exp errs by less than this from the exact exponential, in units of the last place.
inline constexpr double kExpErrorBound = 0.5120;

}  // namespace quen::shssim
