#pragma once

#include <cstdint>

#include "quen_image_processing/centroiding/centroiding.hpp"

/// @file
/// What all ready-made centroiding engines share:
///
/// - A pixel is a 16-bit two's-complement number: under noise dark pixels go below zero, and count as negative light.
/// - Only the region's pixels are read. Displacements are from the region's reference point, in pixels, positive toward
///   higher columns and rows; results are the same wherever in the frame a region with the same pixels lies.
/// - An empty region has flux 0 and displacement 0. No light, which is a sum of light that is zero or less, has
///   displacement 0 too, and the flux that was measured. Where no more is said, a NaN reference coordinate makes the
///   displacement along its axis NaN and leaves the rest as it is.
/// - A configuration is checked by the constructor: std::invalid_argument names field, range and value.
/// - Compute allocates nothing, throws nothing and does not change the frame. A frame too small for its region ends the
///   process. One engine serves one thread at a time; any number of engines may run side by side.

namespace quen::centroiders {

struct Pixels;
struct Point;

/// An engine that measures a region's pixels, wherever in the frame they lie.
class QUEN_EXPORT PixelEngine : public image_processing::Centroiding<std::uint16_t> {
 public:
  void Compute(gsl::span<const std::uint16_t> frame, const image_processing::Roi& roi) final;

 protected:
  PixelEngine() = default;

  /// For engines that measure nothing without a reference point: makes both displacements NaN if a coordinate is.
  /// @return  whether one is
  bool LacksReference(const Point& reference);

 private:
  /// Called with results of 0, and with at least one pixel.
  ///
  /// @param reference  from the region's first pixel
  virtual void Measure(const Pixels& pixels, const Point& reference) = 0;
};

}  // namespace quen::centroiders
