#pragma once

#include <cstdint>
#include <vector>

#include "centroiders/pixel_engine.hpp"

namespace quen::centroiders {

struct CorrelationConfig {
  /// Side of the template, pixels: odd, 3 to 63.
  std::size_t size = 21;
  /// The template, row by row, size · size finite numbers, not all zero, of a spot whose centre is on the middle pixel.
  /// If empty, the drawn spot with height 1.
  std::vector<double> template_values = {};
};

/// The matched filter: the position at which the template T correlates best with the pixels p,
///
///     C(i, j) = Σ T(x − i, y − j) · p(x, y).
///
/// Starts at the brightest pixel, climbs to the nearest maximum of C over whole pixels, and puts a parabola through the
/// logarithms of C there and at both neighbours along either axis. For a Gaussian the logarithm is a parabola: the
/// result is exact, where a parabola through C itself errs by up to 0.006 pixels. Noise of less than half the spot's peak
/// cannot make a pixel outside the spot the brightest. Flux is the light of the whole region.
///
/// The result is at most a pixel outside the region. No light is a maximum of C that is zero or less; where C is not
/// positive beside its maximum, whole pixels remain.
class QUEN_EXPORT Correlation : public PixelEngine {
 public:
  /// @throws std::invalid_argument  an even or out-of-range `size`, a template with another number of values or with one
  ///                                that is not finite, or with zeros only
  explicit Correlation(const CorrelationConfig& config = {});

 private:
  void Measure(const Pixels& pixels, const Point& reference) override;

  std::size_t size_;
  std::vector<double> template_;
};

}  // namespace quen::centroiders
