#pragma once

#include <cstdint>
#include <vector>

#include "centroiders/pixel_engine.hpp"
#include "common/checks/limits.hpp"

namespace quen::centroiders {

/// What the numbers of CorrelationConfig and GaussianTemplate may be.
struct CorrelationLimits {
  static constexpr common::Limits kSize = {3, 63};       ///< of a template, pixels
  static constexpr common::Limits kFwhm = {1.0, 100.0};  ///< of a GaussianTemplate
};

/// A template for a Correlation: size · size numbers, row by row, of a Gaussian of height 1 whose centre is on the
/// middle pixel.
/// @param size  side, pixels: odd, within CorrelationLimits
/// @param fwhm  full width at half maximum, pixels, within CorrelationLimits
/// @throws std::invalid_argument  another size or width
QUEN_EXPORT std::vector<double> GaussianTemplate(std::size_t size, double fwhm);

/// The spot that is looked for.
struct CorrelationConfig {
  /// Side of the template, pixels: odd, within CorrelationLimits.
  std::size_t size = 21;
  /// The template, row by row, size · size finite numbers, not all zero, of a spot whose centre is on the middle pixel.
  /// If empty, the drawn spot with height 1.
  std::vector<double> template_values = {};
};

/// Where the correlation's top is, between pixels.
enum class CorrelationTop {
  kOfParabolas,  ///< that of a parabola along either axis by itself
  kOfSurface,    ///< that of a surface of second degree, which has a mixed term: exact for inclined spots, too
};

/// The matched filter: the position at which the template T correlates best with the pixels p,
///
///     C(i, j) = Σ T(x − i, y − j) · p(x, y).
///
/// Pixels outside the region count nothing, which cuts the sum where the template reaches beyond it.
///
/// Starts at the brightest pixel; where several are equal, at the mean of their positions, rounded down to a whole
/// column and row. Climbs from pixel to pixel: to the one of the eight neighbours in the region where C is largest, as
/// long as it is larger than here, and where neighbours are equal to the first of them, row by row. Puts a parabola,
/// along either axis by itself, through the logarithms of C at the top and at both its neighbours, those outside the
/// region included. For a Gaussian the logarithm is a parabola: the result is exact, where a parabola through C itself
/// errs by up to 0.006 pixels. Noise of less than half the spot's peak cannot make a pixel outside the spot the
/// brightest. Flux is the light of the whole region.
///
/// Where the spot is inclined, a parabola along an axis by itself errs, by 0.1 pixels for one of deviations 3.5
/// and 1.5. The surface's top d solves H · d = −∇, with the second and first differences of the logarithms: along the
/// axes those of the parabolas, and (L₊₊ − L₊₋ − L₋₊ + L₋₋) / 4 for the mixed one, from the corners. It takes the place
/// of the parabolas' where C is positive at all eight neighbours, H is that of a maximum and d at most a pixel along
/// each axis.
///
/// The parabola's top is at most half a pixel from the pixel where the climb ends, or a pixel where that one is in the
/// region's first or last column or row; where C is not positive at both neighbours, or is the same at all three, the
/// whole pixel remains. No light is a C of 0 or less where the climb ends: the displacement is 0 then, also with a NaN
/// reference, which else makes the displacement along its axis NaN.
class QUEN_EXPORT Correlation : public PixelEngine {
 public:
  /// @throws std::invalid_argument  an even or out-of-range `size`, a template with another number of values, with one
  ///                                that is not finite, or with zeros only
  explicit Correlation(const CorrelationConfig& config = {});
  /// The same with a top of one's choice; the first one takes that of parabolas.
  Correlation(const CorrelationConfig& config, CorrelationTop top);

 private:
  void Measure(const Pixels& pixels, const Point& reference) override;

  std::uint32_t size_;
  CorrelationTop top_;
  std::vector<double> template_;  ///< with zeros around it
};

}  // namespace quen::centroiders
