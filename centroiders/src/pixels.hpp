#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <gsl/span>

#include "quen_image_processing/roi/roi.hpp"

namespace quen::centroiders {

/// Columns or rows that the kernels sum in one go.
inline constexpr std::size_t kTile = 64;

/// A rectangle of a frame, its pixels read as the signed numbers that they are. Pixel (0, 0) is its corner.
struct Pixels {
  const std::int16_t* first;
  std::size_t stride;  ///< from row to row
  std::size_t width;
  std::size_t height;

  [[nodiscard]] bool IsEmpty() const { return width == 0 || height == 0; }
  [[nodiscard]] const std::int16_t* Row(std::size_t y) const { return first + y * stride; }
  [[nodiscard]] std::int16_t At(std::size_t x, std::size_t y) const { return Row(y)[x]; }

  /// Columns [x_low, x_up) and rows [y_low, y_up) of this rectangle.
  [[nodiscard]] Pixels Part(std::size_t x_low, std::size_t x_up, std::size_t y_low, std::size_t y_up) const {
    return {Row(y_low) + x_low, stride, x_up - x_low, y_up - y_low};
  }
};

/// The pixels of a region. Ends the process where the frame does not hold them.
inline Pixels PixelsOf(gsl::span<const std::uint16_t> frame, const image_processing::Roi& roi) {
  if (roi.x_up <= roi.x_low || roi.y_up <= roi.y_low) return {nullptr, 0, 0, 0};
  const std::size_t stride = roi.x_max;
  const std::size_t first = roi.x_low + stride * roi.y_low;
  const std::size_t end = roi.x_up + stride * (roi.y_up - 1U);
  const gsl::span<const std::uint16_t> pixels = frame.subspan(first, end - first);
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): the signed type of the same width may alias.
  return {reinterpret_cast<const std::int16_t*>(pixels.data()), stride, static_cast<std::size_t>(roi.x_up - roi.x_low),
          static_cast<std::size_t>(roi.y_up - roi.y_low)};
}

/// A position relative to the corner of a region, so that results do not depend on where in the frame it lies.
struct Point {
  double x;
  double y;

  [[nodiscard]] bool IsKnown() const { return !std::isnan(x) && !std::isnan(y); }
};

inline Point ReferenceOf(const image_processing::Roi& roi) { return {roi.x_ref - roi.x_low, roi.y_ref - roi.y_low}; }

}  // namespace quen::centroiders
