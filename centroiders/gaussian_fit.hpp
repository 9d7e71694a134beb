#pragma once

#include <cstdint>
#include <memory>

#include "centroiders/drawn_spot.hpp"
#include "centroiders/pixel_engine.hpp"
#include "common/checks/limits.hpp"

namespace quen::centroiders {

class Gaussian;

/// What the numbers of GaussianFitConfig may be.
struct GaussianFitLimits {
  static constexpr common::Limits kFwhm = {1.0, 100.0};  ///< pixels
  static constexpr common::Limits kSteps = {1, 100};     ///< of Gauss-Newton
};

/// Within GaussianFitLimits.
struct GaussianFitConfig {
  double fwhm = kSpotFwhm;  ///< of the spot, pixels
  int steps = 4;            ///< of Gauss-Newton
};

/// The Gaussian of given width, with free height and position, that is closest to the pixels in the sense of least
/// squares; for equal and independent noise in all pixels no other linear unbiased method has less noise.
///
/// Starts at the brightest pixel; where several are equal, at the mean of their positions. Each step solves the linear
/// problem
///
///     p ≈ a · g + b_x · (x − c_x) · g + b_y · (y − c_y) · g,    g = exp(−((x − c_x)² + (y − c_y)²) / (2 s²)),
///
/// and moves the centre c by s² · b / a, along either axis by at most s, and no farther than to the centres of the
/// region's first and last pixels. Only pixels of the region enter, so that a spot that its edge cuts is not drawn
/// inward; g ends after nine deviations, as the weight of WeightedCentreOfGravity does. Flux is the light of the fitted
/// spot, 2π s² · a, with the height of the last step, before it moves. All steps are done.
///
/// No light is a height a of 0 or less in any step, where the fit ends with that step's flux; or pixels too few to
/// tell, which is one column or one row, and flux 0. The displacement is 0 then, also with a NaN reference, which else
/// makes the displacement along its axis NaN.
class QUEN_EXPORT GaussianFit : public PixelEngine {
 public:
  /// @throws std::invalid_argument  a value out of its range
  explicit GaussianFit(const GaussianFitConfig& config = {});

 private:
  void Measure(const Pixels& pixels, const Point& reference) override;

  std::shared_ptr<const Gaussian> shape_;
  int steps_;
};

}  // namespace quen::centroiders
