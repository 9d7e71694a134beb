#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "centroiders/drawn_spot.hpp"
#include "centroiders/pixel_engine.hpp"

namespace quen::centroiders {

class Gaussian;

struct WeightedCentreOfGravityConfig {
  double fwhm = kSpotFwhm;  ///< full width at half maximum of the weight, pixels, 1 to 100
  std::optional<double> gain =
      {};  ///< factor on the displacements, above 0 to 100; if not given, the one for the drawn spot
};

/// The centre of gravity with a Gaussian weight w around the reference point:
///
///     x = gain · Σ w · p · (x − x_ref) / Σ w · p.
///
/// A Gaussian spot (deviation s) times a Gaussian weight (deviation t) is a Gaussian again, displaced by t² / (s² + t²) of
/// the spot's displacement. The gain (s² + t²) / t² therefore makes the response exactly linear, as long as the region
/// holds what weight and spot have in common. (Thomas et al., Comparison of centroid computation algorithms in a
/// Shack-Hartmann sensor, MNRAS 371, 2006.) Pixels farther than nine deviations of the weight from the reference weigh
/// nothing. Flux is the light of the whole region, unweighted.
///
/// A NaN reference coordinate gives flux 0 and NaN for both displacements.
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
