#pragma once

#include <cstdint>
#include <optional>

#include "centroiders/pixel_engine.hpp"
#include "common/checks/limits.hpp"

namespace quen::centroiders {

/// What becomes of the light of pixels above a threshold.
enum class Thresholding {
  kSubtract,  ///< light above the threshold counts: p − background − threshold
  kCut        ///< all light of a pixel above the threshold counts: p − background
};

/// What the numbers of CentreOfGravityConfig may be.
struct CentreOfGravityLimits {
  static constexpr common::Limits kBackground = {-32768.0, 32767.0};  ///< pixel values
  static constexpr common::Limits kThreshold = {0.0, 65535.0};        ///< pixel values
};

/// Numbers are within CentreOfGravityLimits.
struct CentreOfGravityConfig {
  double background = 0.0;               ///< subtracted from every pixel
  std::optional<double> threshold = {};  ///< above the background; pixels up to it count nothing. Without one every
                                         ///< pixel counts, those below the background with negative light
  Thresholding thresholding = Thresholding::kSubtract;  ///< what counts above the threshold
};

/// The centre of gravity of a region's light l:   x = Σ l · x / Σ l − x_ref,   flux = Σ l.
///
/// Unbiased without a threshold, for a spot that lies inside its region, but the noise of every dark pixel counts, the
/// more the farther out it is. A threshold takes that noise away and, subtracted or not, some of the spot's wings.
///
/// No light is a flux of 0 or less. A NaN reference coordinate makes the displacement along its axis NaN.
class QUEN_EXPORT CentreOfGravity : public PixelEngine {
 public:
  /// @throws std::invalid_argument  a value out of its range
  explicit CentreOfGravity(const CentreOfGravityConfig& config = {});

 private:
  void Measure(const Pixels& pixels, const Point& reference) override;

  std::int32_t cut_;  // only pixels above it count
  double zero_;       // the pixel value that is no light
};

}  // namespace quen::centroiders
