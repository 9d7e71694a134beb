#pragma once

#include <cstdint>
#include <optional>

#include "quen_image_processing/centroiding/centroiding.hpp"

/// @file
/// Ready-made centroiding engines, one header each. What all of them share:
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

enum class Thresholding {
  kSubtract,  ///< light above the threshold counts: p − background − threshold
  kCut        ///< all light of a pixel above the threshold counts: p − background
};

struct CentreOfGravityConfig {
  double background = 0.0;  ///< subtracted from every pixel, −32768 to 32767
  std::optional<double> threshold =
      {};  ///< above the background, 0 to 65535; pixels up to it count nothing. Without one
           ///< every pixel counts, those below the background with negative light
  Thresholding thresholding = Thresholding::kSubtract;
};

/// The centre of gravity of a region's light l:   x = Σ l · x / Σ l − x_ref,   flux = Σ l.
///
/// Unbiased without a threshold, for a spot that lies inside its region, but the noise of every dark pixel counts, the
/// more the farther out it is. A threshold takes that noise away and, subtracted or not, some of the spot's wings.
class QUEN_EXPORT CentreOfGravity : public image_processing::Centroiding<std::uint16_t> {
 public:
  /// @throws std::invalid_argument  a value out of its range
  explicit CentreOfGravity(const CentreOfGravityConfig& config = {});
  void Compute(gsl::span<const std::uint16_t> frame, const image_processing::Roi& roi) override;

 private:
  std::int32_t cut_;  // only pixels above it count
  double zero_;       // the pixel value that is no light
};

}  // namespace quen::centroiders
