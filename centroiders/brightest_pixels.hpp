#pragma once

#include <cstdint>
#include <optional>

#include "centroiders/pixel_engine.hpp"
#include "common/checks/limits.hpp"

namespace quen::centroiders {

/// What the numbers of BrightestPixelsConfig may be.
struct BrightestPixelsLimits {
  static constexpr common::Limits kNumber = {2, 1'000'000};      ///< pixels
  static constexpr common::Limits kFraction = {0.0, 1.0, true};  ///< of the region's pixels
};

/// Exactly one of the two, within BrightestPixelsLimits.
struct BrightestPixelsConfig {
  std::optional<std::size_t> number = {};  ///< of pixels; all where the region has fewer
  std::optional<double> fraction = {};     ///< of the region's pixels; rounded, and at least 2 pixels
};

/// The centre of gravity of the brightest pixels: the dimmest of them is taken for no light and subtracted, so that
/// pixels enter and leave without a jump, and equal ones do so together. Flux is what remains of the light.
/// (Basden, Myers and Gendron, Wavefront sensing with a brightest pixel selection algorithm, MNRAS 419, 2012.)
///
/// Where several pixels are as bright as the dimmest one, none of them counts. No light is that no pixel is brighter;
/// the flux is 0 then, and never negative. A NaN reference coordinate makes the displacement along its axis NaN.
class QUEN_EXPORT BrightestPixels : public PixelEngine {
 public:
  /// @throws std::invalid_argument  none or both of `number` and `fraction`, or a value out of its range
  explicit BrightestPixels(const BrightestPixelsConfig& config);

 private:
  void Measure(const Pixels& pixels, const Point& reference) override;

  BrightestPixelsConfig config_;
  std::int32_t dimmest_ = 0;  // of the last spot: where the search for the next one's starts
};

}  // namespace quen::centroiders
