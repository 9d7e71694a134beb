#pragma once

#include <cstdint>
#include <memory>

#include "centroiders/drawn_spot.hpp"
#include "centroiders/pixel_engine.hpp"

namespace quen::centroiders {

class Gaussian;

struct GaussianFitConfig {
  double fwhm = kSpotFwhm;  ///< of the spot, pixels, 1 to 100
  int steps = 4;            ///< of Gauss-Newton, 1 to 100
};

/// The Gaussian of given width, with free height and position, that is closest to the pixels in the sense of least
/// squares; for equal and independent noise in all pixels no other linear unbiased method has less noise.
///
/// Starts at the brightest pixel. Each step solves the linear problem
///
///     p ≈ a · g + b_x · (x − c_x) · g + b_y · (y − c_y) · g,    g = exp(−((x − c_x)² + (y − c_y)²) / (2 s²)),
///
/// and moves the centre c by s² · b / a, at most by s and not out of the region. Only pixels of the region enter, so that
/// a spot that its edge cuts is not drawn inward. Flux is the light of the fitted spot, 2π s² · a.
///
/// No light is a height a that is zero or less, or pixels too few to tell (fewer than two columns or rows).
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
