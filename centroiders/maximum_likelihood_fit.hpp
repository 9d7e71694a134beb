#pragma once

#include <cstdint>
#include <gsl/span>
#include <memory>

#include "centroiders/drawn_spot.hpp"
#include "centroiders/pixel_reading.hpp"
#include "common/checks/limits.hpp"
#include "defs/export.hpp"
#include "quen_image_processing/centroiding/centroiding.hpp"

namespace quen::centroiders {

/// What is known of a spot's shape, besides that it is Gaussian.
enum class SpotShape {
  kGiven,  ///< round, with the given width
  kRound,  ///< round; the width is fitted
  kOval,   ///< two widths and the direction of the longer one are fitted
};

/// What is known of the light that all of a region's pixels have.
enum class SpotBackground {
  kGiven,     ///< the given level
  kConstant,  ///< the level is fitted
  kSlope,     ///< level and slopes along both axes are fitted
};

/// What the numbers of MaximumLikelihoodConfig may be.
struct MaximumLikelihoodLimits {
  static constexpr common::Limits kGain = {0.0, 1e6, true};       ///< counts per electron
  static constexpr common::Limits kReadNoise = {0.0, 1e6};        ///< electrons RMS
  static constexpr common::Limits kFwhm = {1.0, 100.0};           ///< pixels
  static constexpr common::Limits kBackground = {0.0, 1e9};       ///< electrons per pixel
  static constexpr common::Limits kSteps = {2, 1000};             ///< at most
  static constexpr common::Limits kTolerance = {1e-9, 1.0};       ///< pixels
  static constexpr common::Limits kSignificance = {0.0, 1000.0};  ///< standard errors
};

/// Numbers are within MaximumLikelihoodLimits.
struct MaximumLikelihoodConfig {
  PixelReading reading = {};            ///< counts to light
  double gain = 1.0;                    ///< counts per electron
  double read_noise = 5.0;              ///< electrons RMS; for frames of the simulator, their noise / √3
  SpotShape shape = SpotShape::kGiven;  ///< what of it is fitted
  double fwhm = kSpotFwhm;              ///< of the spot, pixels; where a width is fitted, the search starts with it
  SpotBackground background_model = SpotBackground::kConstant;  ///< what of it is fitted
  double background = 0.0;                                      ///< electrons per pixel, where it is given
  int steps = 50;                                               ///< at most
  double tolerance = 1e-3;                                      ///< pixels; a smaller step than this one is the last
  double significance = 4.0;  ///< least light of a spot, in units of its own standard error
};

/// The Gaussian spot on a background that makes the pixels most likely, with the noise of photons and of the read-out:
///
///     μ = b + b_x · u + b_y · v + a · g,    g = exp(−(p_xx u² + 2 p_xy u v + p_yy v²) / 2),    (u, v) = (x, y) − c,
///
/// in electrons, where b stands for the terms that are free or given. A pixel of n electrons has variance μ + r², with
/// r the read noise and the rounding to whole counts, r² = read_noise² + 1 / (12 gain²). n + r² is taken for a Poisson
/// number of mean μ + r², which has the same mean and variance (Snyder, Helstrom, Lanterman, Faisal and White,
/// Compensation for readout noise in CCD images, JOSA A 12, 1995). Its likelihood is greatest where for each parameter
///
///     Σ (n − μ) / (μ + r²) · ∂μ/∂parameter = 0,
///
/// sums over the pixels that count. Each step solves for the change of the parameters, with the information
/// Σ ∂μ ∂μᵀ / (μ + r²) in place of the second derivatives (Fisher's scoring), as a linear problem with weights
/// 1 / (μ + r²). The inverse of the information is the Cramér-Rao bound, which the fit attains as soon as there is
/// light enough for the linear problem to hold over the error (Winick, Cramér-Rao lower bounds on the performance of
/// charge-coupled-device optical position estimators, JOSA A 3, 1986); Thomas et al. (MNRAS 371, 2006) compare the
/// bound with other methods.
///
/// Starts where the mean of a square of pixels is largest, whose side is 2 · round(deviation) + 1, each pixel taken for
/// no brighter than the brightest of its neighbours: no single pixel can draw the start away from the spot. The first
/// step is that of equal weights. What a step gives is taken for the light, the mean and the variances of the spot
/// times g, which is right from afar, too, and to first order the same as a change of the parameters. Of a step that
/// would change these variances by more than 0.7 of themselves, and a deviation by more than about a factor of two,
/// only the part is taken that does not, in all parameters; and none moves the centre farther than half a pixel out of
/// the region. The fit ends with the first step that moves neither the centre nor a deviation by more than `tolerance`.
/// With a tolerance of 10⁻⁴ pixels or more, all steps but the first have their sums in single precision: what these err
/// by is a ten-thousandth of the noise of photons, and shifts a centre by some 10⁻⁶ pixels.
///
/// Pixels that do not count (pixel_reading.hpp) have weight 0. A flat map's response weighs pixels, too: the variance
/// of their light is (μ + r²) / flat_map, which is exact but for the read noise. The noise of dark electrons belongs in
/// the read noise, and so does what the simulator adds. Where light is multiplied before it is read, which doubles its
/// variance, give 2 · em_gain · gain for the gain and read_noise / (2 em_gain) for the read noise.
///
/// Flux is the light of the fitted spot, 2π a / √(p_xx p_yy − p_xy²), in counts.
///
/// The fit fails, and says so with flux 0 and NaN for both displacements, where
/// - the region has less than 3 columns or rows, or fewer pixels that count than there are parameters,
/// - pixels do not tell the parameters apart,
/// - a step finds no light, a ≤ 0, or a deviation below 0.3 pixels or beyond the region's longer side,
/// - the last step is not reached, as where the centre would leave the region by more than half a pixel,
/// - the light is less than `significance` times its standard error: noise is no spot.
///
/// A NaN reference coordinate makes the displacement along its axis NaN. An empty region has flux 0 and displacement 0.
///
/// Compute throws nothing, and allocates nothing but for the first region of more than 16 384 pixels, columns counted
/// in whole eights, and later ones that are larger still.
class QUEN_EXPORT MaximumLikelihoodFit : public image_processing::Centroiding<std::uint16_t> {
 public:
  /// @throws std::invalid_argument  a value out of its range, or maps of different sizes
  explicit MaximumLikelihoodFit(const MaximumLikelihoodConfig& config = {});
  ~MaximumLikelihoodFit() override;
  MaximumLikelihoodFit(MaximumLikelihoodFit&& other) noexcept;  ///< `other` may then only be assigned to, or destroyed
  MaximumLikelihoodFit& operator=(MaximumLikelihoodFit&& other) noexcept;  ///< as moving into a new one
  MaximumLikelihoodFit(const MaximumLikelihoodFit& other) = delete;
  MaximumLikelihoodFit& operator=(const MaximumLikelihoodFit& other) = delete;

  void Compute(gsl::span<const std::uint16_t> frame, const image_processing::Roi& roi) override;

 private:
  class Fit;
  std::unique_ptr<Fit> fit_;
};

}  // namespace quen::centroiders
