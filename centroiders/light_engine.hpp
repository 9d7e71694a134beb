#pragma once

#include <cstdint>
#include <gsl/span>
#include <memory>
#include <optional>

#include "centroiders/pixel_reading.hpp"
#include "common/checks/limits.hpp"
#include "defs/export.hpp"
#include "quen_image_processing/centroiding/centroiding.hpp"

namespace quen::centroiders {

/// What is taken for the background of a region.
enum class BackgroundEstimate {
  kNone,          ///< 0
  kBorderMean,    ///< the mean light of the region's outermost pixels
  kBorderMedian,  ///< their median
  kQuantile,      ///< a quantile of the light of all its pixels
};

/// What the numbers of LightConfig may be.
struct LightLimits {
  static constexpr common::Limits kQuantile = {0.0, 1.0};  ///< of a region's pixels
};

/// How counts become light, and what of it is none of the spot's.
struct LightConfig {
  PixelReading reading = {};                                  ///< counts to light
  BackgroundEstimate background = BackgroundEstimate::kNone;  ///< what is subtracted from the light
  double quantile = 0.25;  ///< for kQuantile, within LightLimits: 0 is the dimmest pixel, 1 the brightest
};

/// Puts a region's light in the place of its counts, and has another engine measure that:
///
///     pixel = round(light − background),    light as pixel_reading.hpp says.
///
/// The engine sees a small frame that is the region. Pixels that do not count do not make the background. A bad one has
/// the mean light of those of its eight neighbours in the region that are not bad, 0 if there are none; a saturated one
/// keeps its own, which is too little, and less would be worse. Where a median or a quantile falls between two pixels,
/// it is the dimmer one.
///
/// Pixels are 16-bit numbers. Where those of a region do not fit, all of them are halved before they are rounded, as
/// often as it takes, and the engine's own thresholds are for what is left; the flux is made up for it.
///
/// Compute allocates nothing but for the first region of more than 16 384 pixels, columns counted in whole eights, and
/// later ones that are larger still, and throws what the engine throws.
class QUEN_EXPORT LightEngine : public image_processing::Centroiding<std::uint16_t> {
 public:
  /// What it works with: any engine for 16-bit pixels.
  using Engine = image_processing::Centroiding<std::uint16_t>;

  /// @param config  how counts become light, and what is subtracted from it
  /// @param engine  that measures; there must be one
  /// @throws std::invalid_argument  a value out of its range, or maps of different sizes
  LightEngine(const LightConfig& config, std::unique_ptr<Engine> engine);
  ~LightEngine() override;
  LightEngine(LightEngine&& other) noexcept;             ///< `other` may then only be assigned to, or destroyed
  LightEngine& operator=(LightEngine&& other) noexcept;  ///< as moving into a new one
  LightEngine(const LightEngine& other) = delete;
  LightEngine& operator=(const LightEngine& other) = delete;

  void Compute(gsl::span<const std::uint16_t> frame, const image_processing::Roi& roi) override;

 private:
  class Light;
  std::unique_ptr<Light> light_;
  std::unique_ptr<Engine> engine_;
};

}  // namespace quen::centroiders
