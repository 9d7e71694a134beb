#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "common/checks/limits.hpp"
#include "detector/detector.hpp"
#include "quen_image_processing/centroiding/centroiding.hpp"
#include "shssim/shs_simulator.hpp"

/// @file
/// Centroiding engines against the truth: frames with known displacements are rendered by the simulator and measured,
/// and the errors summed up. Any engine will do, a host's own too.

namespace quen::centroiders {

/// What the numbers of ScoreOptions may be.
struct ScoreLimits {
  static constexpr common::Limits kNoise = {0.0, 1e9};    ///< units of pixel values
  static constexpr common::Limits kRange = {0.0, 100.0};  ///< pixels
  static constexpr common::Limits kFrames = {1.0, 1e9};   ///< frames
};

/// Numbers are within ScoreLimits.
struct ScoreOptions {
  double noise = 10.0;      ///< half-width of the pixel noise, units of pixel values
  double range = 2.0;       ///< displacements are uniform in [−range, range] along either axis, pixels
  std::size_t frames = 20;  ///< that are measured
  std::uint32_t seed = 1;   ///< of displacements and noise; equal options give equal scores, but for the time
  std::function<void()> after_frame = {};  ///< called, if there is one, after each frame; may throw
};

/// Along one axis, over all spots but the failed ones; pixels.
struct AxisScore {
  double bias = 0.0;    ///< mean error, measured − true
  double rms = 0.0;     ///< root of the mean squared error, the bias included
  double gain = 0.0;    ///< slope of the straight line closest to measured against true displacements; NaN for range 0
  double offset = 0.0;  ///< where that line is for no displacement; NaN for range 0
};

/// Of one engine.
struct Score {
  AxisScore x;                ///< along the columns
  AxisScore y;                ///< along the rows
  double worst = 0.0;         ///< largest error along either axis, but for the failed spots; pixels
  double flux_bias = 0.0;     ///< mean of measured light over that of the whole spot, less 1
  double flux_rms = 0.0;      ///< root of the mean square of that
  double failed = 0.0;        ///< share of spots with an error along an axis of more than a pixel, or not finite
  double microseconds = 0.0;  ///< that the measurement of one frame took, the least of all frames
};

/// The least RMS error along an axis that a linear unbiased estimator can have, for a spot well inside its region.
///
/// Where the spot s(x − d) is displaced by d, a pixel changes by −∂s/∂x per pixel of displacement. An estimator Σ c · p
/// is unbiased if Σ c · ∂s/∂x = −1, its variance is Σ c² · v for independent pixels of variance v, and the least such
/// variance, by the inequality of Cauchy and Schwarz, is
///
///     v / Σ (∂s/∂x)²,   Σ (∂s/∂x)² = A² · π / 2   for a Gaussian of height A, whatever its width,
///
/// the integral, from which the sum over the pixels of the drawn spot differs by less than 10⁻¹⁶ of it. A free height
/// changes nothing, for the spot is even in x and its derivative odd.
///
/// Noise that is uniform in [−noise, noise] has variance noise² / 3. Truncation toward zero adds an error that is
/// uniform over a unit and independent of the displacement, as long as that is spread over more than 0.001 pixels:
/// variance 1/12. (In pixels darker than the noise, which truncation makes a little quieter, this is not so: at no
/// noise do they carry enough of the sum to change the bound by 10⁻⁴ of itself.) Its mean, −1/2 where the spot is
/// brighter than the noise, is even in x and displaces nothing.
///
/// @param noise  half-width of the noise, units of pixel values
QUEN_EXPORT double ErrorBound(double noise);

/// The same for a spot that a detector exposes, in pixels without maps and far from saturation. In a pixel whose
/// variance is v(x, y) the argument above gives
///
///     1 / Σ (∂μ/∂x)² / v,    μ = electrons_per_unit · s + background,
///     v = m · (μ + dark) + (read_noise / em_gain)² + 1 / (12 · (gain · em_gain)²),
///
/// in electrons, where m is 1, 2 with multiplication, and 0 without photon noise, and the last term is the converter's
/// rounding. For a spot of N electrons this is σ / √N where photons are the only noise, and √(8π) · σ² · read_noise / N
/// where reading is (as in Thomas et al. 2006). Infinite without light.
QUEN_EXPORT double ErrorBound(const detector::DetectorConfig& detector);

/// What is scored: any engine for 16-bit pixels.
using Engine = image_processing::Centroiding<std::uint16_t>;

/// Renders frames and measures each with all engines, by ComputeSlopes. The errors of used sub-apertures count.
///
/// The noise comes from the calling thread's generator, which is seeded for this and put back into its earlier state at
/// the end. The simulator is left with the last frame and the last measurement.
///
/// @return  a score per engine, in their order
/// @throws std::invalid_argument  an option out of its range. What an engine and `after_frame` throw passes through.
QUEN_EXPORT std::vector<Score> ScoreEngines(shssim::ShsSimulator& simulator,
                                            const std::vector<std::reference_wrapper<Engine>>& engines,
                                            const ScoreOptions& options);

/// The same on frames that a detector exposes, instead of noise: frames 0, 1, 2, … of the options' seed. Engines
/// measure them as ComputeSlopes would. The simulator is left with the last frame as it was before the detector.
///
/// Light is compared with that of a whole spot in counts.
///
/// @throws std::invalid_argument  also what is wrong with the detector
QUEN_EXPORT std::vector<Score> ScoreEngines(shssim::ShsSimulator& simulator,
                                            const std::vector<std::reference_wrapper<Engine>>& engines,
                                            const ScoreOptions& options, const detector::DetectorConfig& detector);

}  // namespace quen::centroiders
