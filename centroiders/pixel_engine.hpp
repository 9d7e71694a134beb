#pragma once

#include <cstdint>

#include "quen_image_processing/centroiding/centroiding.hpp"

/// @file
/// What all ready-made centroiding engines share, if their own headers do not say otherwise:
///
/// - A pixel is a 16-bit two's-complement number: under noise dark pixels go below zero, and count as negative light.
/// - Only the region's pixels are read. Displacements are from the region's reference point, in pixels, positive toward
///   higher columns and rows; results are the same wherever in the frame a region with the same pixels lies.
/// - Columns and rows are those of the region: the first column and the first row have number 0, and a pixel's centre
///   is at its whole numbers.
/// - An empty region has flux 0 and displacement 0 with any engine, whatever its reference point is.
/// - Where an engine finds no light, the displacement is 0 and the flux is what was measured. What no light is depends
///   on what the engine divides by, and what a NaN reference coordinate does on whether the engine needs the point to
///   measure:
///
///   | engine                     | no light is                      | NaN reference         | NaN without light     |
///   |----------------------------|----------------------------------|-----------------------|-----------------------|
///   | `CentreOfGravity`          | flux ≤ 0                         | NaN along its axis    | NaN along its axis    |
///   | `WindowedCentreOfGravity`  | flux ≤ 0                         |                       |                       |
///   | … on the brightest pixel   |                                  | NaN along its axis    | NaN along its axis    |
///   | … on the reference         |                                  | flux 0, both axes NaN | flux 0, both axes NaN |
///   | `WeightedCentreOfGravity`  | weighted light ≤ 0, at any flux  | flux 0, both axes NaN | flux 0, both axes NaN |
///   | `BrightestPixels`          | flux 0                           | NaN along its axis    | NaN along its axis    |
///   | `QuadCell`                 | flux ≤ 0                         | flux 0, both axes NaN | flux 0, both axes NaN |
///   | `Correlation`              | its maximum ≤ 0, at any flux     | NaN along its axis    | 0 along both axes     |
///   | `GaussianFit`              | flux ≤ 0 in any step             | NaN along its axis    | 0 along both axes     |
///   | `MaximumLikelihoodFit`     | none that stands out of noise    | NaN along its axis    | flux 0, both axes NaN |
///
///   NaN along its axis leaves the flux and the other axis as they are. `MaximumLikelihoodFit` tells of a fit that has
///   failed, as it does without light: flux 0 and NaN for both displacements, whatever the reference.
/// - A configuration is checked by the constructor. The text of its std::invalid_argument is ENGINE: FIELD must be WHAT
///   IS EXPECTED, found WHAT IS GIVEN, and, where that does not say it, what to do.
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
