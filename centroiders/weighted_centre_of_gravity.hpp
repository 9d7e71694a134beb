#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "centroiders/drawn_spot.hpp"
#include "centroiders/pixel_engine.hpp"
#include "common/checks/limits.hpp"

namespace quen::centroiders {

class Gaussian;

/// What the numbers of WeightedCentreOfGravityConfig may be.
struct WeightedCentreOfGravityLimits {
  static constexpr common::Limits kFwhm = {1.0, 100.0};        ///< pixels
  static constexpr common::Limits kGain = {0.0, 100.0, true};  ///< without a unit
};

/// Within WeightedCentreOfGravityLimits.
struct WeightedCentreOfGravityConfig {
  double fwhm = kSpotFwhm;          ///< full width at half maximum of the weight, pixels
  std::optional<double> gain = {};  ///< factor on the displacements; if not given, the one for the drawn spot
};

/// The centre of gravity with a Gaussian weight w around the reference point:
///
///     x = gain · Σ w · p · (x − x_ref) / Σ w · p.
///
/// A Gaussian spot (deviation s) times a Gaussian weight (deviation t) is a Gaussian again, displaced by t² / (s² + t²)
/// of the spot's displacement. The gain (s² + t²) / t² therefore makes the response exactly linear, as long as the
/// region holds what weight and spot have in common. (Thomas et al., Comparison of centroid computation algorithms in a
/// Shack-Hartmann sensor, MNRAS 371, 2006.) Flux is the light of the whole region, unweighted.
///
/// The weight ends after nine deviations t, rounded up to whole pixels. They are counted in columns and in rows, from
/// the pixel that is nearest to the reference; where two are equally near, from the one whose number in the region is
/// even. Pixels farther along either axis weigh nothing.
///
/// No light is a weighted sum Σ w · p of 0 or less: the displacement is 0 then, also where the flux is positive, and is
/// measured where the sum is positive and the flux is not. A NaN reference coordinate gives flux 0 and NaN for both
/// displacements.
class QUEN_EXPORT WeightedCentreOfGravity : public PixelEngine {
 public:
  /// @throws std::invalid_argument  a value out of its range
  explicit WeightedCentreOfGravity(const WeightedCentreOfGravityConfig& config = {});

 private:
  void Measure(const Pixels& pixels, const Point& reference) override;

  std::shared_ptr<const Gaussian> weight_;
  double gain_;
};

}  // namespace quen::centroiders
