#pragma once

#include <cstdint>

#include "defs/export.hpp"

/// @file
/// Region of interest: the rectangle of detector pixels in which one sub-aperture's spot is drawn or measured, and the
/// point where the spot lies for a flat wavefront.

namespace quen::image_processing {

/// One sub-aperture's region, validated when it is constructed. A plain value: copied freely, stored by value.
///
/// The rectangle covers columns x_low … x_up − 1 and rows y_low … y_up − 1 (upper bounds exclusive; equal bounds make a
/// legal, empty rectangle). Pixel (column x, row y) is element x + x_max · y of the row-major frame, and pixel centres
/// are at integers. The reference point is in the same whole-frame coordinates and may lie outside the rectangle.
///
/// Keep `width`, `height` and `n_pixels` in step with the bounds when changing a record in place.
class Roi {
 public:
  std::uint16_t x_low;     ///< first column
  std::uint16_t x_up;      ///< end column, exclusive
  std::uint16_t y_low;     ///< first row
  std::uint16_t y_up;      ///< end row, exclusive
  double x_ref;            ///< reference spot position, column coordinate, pixels
  double y_ref;            ///< reference spot position, row coordinate, pixels
  std::uint16_t width;     ///< x_up − x_low
  std::uint16_t height;    ///< y_up − y_low
  std::uint64_t n_pixels;  ///< width · height
  std::uint16_t x_max;     ///< frame width, the limit of x_up and x_ref
  std::uint16_t y_max;     ///< frame height, the limit of y_up and y_ref

  /// Validates and stores a region. Mind the order: four bounds, two frame limits, two reference coordinates.
  ///
  /// Bounds must satisfy x_low ≤ x_up ≤ x_max and y_low ≤ y_up ≤ y_max; the reference point 0 ≤ x_ref ≤ x_max and
  /// 0 ≤ y_ref ≤ y_max. A NaN reference is accepted.
  ///
  /// @throws std::invalid_argument  bounds out of order or outside the frame; else reference point outside the frame.
  ///                                The text is logged at ERROR level first. Allocates only then.
  // NOLINTNEXTLINE(bugprone-easily-swappable-parameters): the order is the interface.
  QUEN_EXPORT Roi(std::uint16_t x_low, std::uint16_t x_up, std::uint16_t y_low, std::uint16_t y_up, std::uint16_t x_max,
                  std::uint16_t y_max, double x_ref, double y_ref);

  /// A copy grown by `n` pixels on each of its four sides, clipped to the frame. Never fails.
  QUEN_EXPORT Roi Enlarge(std::uint16_t n) const;
};

}  // namespace quen::image_processing
