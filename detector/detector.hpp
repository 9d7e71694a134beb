#pragma once

#include <cstddef>
#include <cstdint>
#include <gsl/span>
#include <memory>
#include <optional>
#include <vector>

#include "common/checks/limits.hpp"
#include "defs/export.hpp"

/// @file
/// A detector: what a camera makes of the light that the simulator's noise-free frame stands for. A stage after the
/// simulator, fed with ShsSimulator::FrameValues(), or with any 840 × 816 values; needs no simulator itself.
///
/// For each pixel, in this order; e⁻ are electrons, U(…) a stage's own random numbers:
///
///     λ = flat · (electrons_per_unit · value + background)
///         + dark + dark_map + hot level                        e⁻ expected; 0 in a dead pixel
///     n = Poisson(λ)                                           e⁻; n = λ without photon noise
///     w = min(n, full_well)                                    e⁻ that the pixel holds
///     m = Gamma(shape w, scale em_gain)                        e⁻; m = w where em_gain is 1
///     v = m + read_noise · Normal(0, 1)                        e⁻
///     c = round(gain · v + offset + offset_map)                counts, to the nearest, halves to the even one
///     count = min(max(c, 0), 2^bits − 1)                       a stuck pixel has its level instead
///
/// A value that is negative or NaN is no light, 0. λ is at most 10⁹, also where the value is infinite.
///
/// The gamma distribution is what multiplication gives in registers of many steps, at gains well above one (Basden,
/// Haniff and Mackay 2003): mean em_gain · w, variance em_gain² · w, so that the noise of light has twice its variance.
///
/// Random numbers are made by counting (Philox4x32-10; Salmon et al. 2011): those of a pixel in a stage depend on
/// (seed, stage, frame number, pixel) alone. So a frame repeats by its number, in any thread and order and on any
/// processor, and a stage that is switched off leaves the numbers of the others alone. Poisson numbers are exact up to
/// λ = 10⁶: quantiles of the distribution, not of a normal one in its place. Above, the probability of single counts is
/// less even, by up to a hundredth at 10⁹; mean and variance stay.

namespace quen::detector {

struct Plan;

inline constexpr std::size_t kWidth = 840;                ///< pixels in a row
inline constexpr std::size_t kHeight = 816;               ///< rows
inline constexpr std::size_t kPixels = kWidth * kHeight;  ///< pixel (column x, row y) is element x + 840 · y

/// What is wrong with a pixel, if anything.
enum class PixelState : std::uint8_t {
  kGood = 0,
  kDead = 1,   ///< collects no electrons; is read as others are
  kHot = 2,    ///< collects more dark electrons, its level; has the noise of all of them
  kStuck = 3,  ///< always gives the same count, its level
};

/// What the numbers of DetectorConfig may be.
struct DetectorLimits {
  static constexpr common::Limits kElectronsPerUnit = {0.0, 1e6};               ///< electrons for a value of 1
  static constexpr common::Limits kElectrons = {0.0, 1e9};                      ///< of a pixel: light, dark, or both
  static constexpr common::Limits kEmGain = {1.0, 1e4};                         ///< without a unit
  static constexpr common::Limits kReadNoise = {0.0, 1e6};                      ///< electrons RMS
  static constexpr common::Limits kFullWell = {0.0, kElectrons.highest, true};  ///< electrons
  static constexpr common::Limits kGain = {0.0, 1e6, true};                     ///< counts per electron
  static constexpr common::Limits kOffset = {-65535.0, 65535.0};                ///< counts
  static constexpr common::Limits kBits = {1, 16};                              ///< of the converter
  static constexpr common::Limits kResponse = {0.0, 1000.0};                    ///< of each pixel, relative
};

/// A detector's parameters, within DetectorLimits. A map is empty, which is none, or has 685 440 elements.
struct DetectorConfig {
  double electrons_per_unit = 1.0;            ///< mean photo-electrons for a value of 1, quantum efficiency included
  double background = 0.0;                    ///< mean electrons per pixel and frame, light: within kElectrons
  double dark = 0.0;                          ///< the same, not light: within kElectrons
  bool photon_noise = true;                   ///< Poisson statistics of all electrons, the dark ones included
  double em_gain = 1.0;                       ///< electron multiplication; 1 is none
  double read_noise = 0.0;                    ///< electrons RMS, Gaussian
  std::optional<double> full_well = {};       ///< electrons; without one there is no limit
  double gain = 1.0;                          ///< counts per electron
  double offset = 0.0;                        ///< pedestal, counts
  int bits = 16;                              ///< of the converter
  std::vector<double> flat_map = {};          ///< relative response, within kResponse
  std::vector<double> dark_map = {};          ///< electrons per frame, within kElectrons
  std::vector<double> offset_map = {};        ///< counts, within kOffset
  std::vector<PixelState> bad_pixels = {};    ///< at least one of them good
  std::vector<double> bad_pixel_levels = {};  ///< of hot pixels electrons per frame, within kElectrons; of stuck ones
                                              ///< counts, 0 to 2^bits − 1, rounded as others; others are not looked
                                              ///< at. Needed where there are such pixels
  std::uint64_t seed = 1;                     ///< of all noise; any number
};

/// A detector that exposes frames. Copies share what was made of the configuration.
class Detector {
 public:
  /// Checks the configuration, in the order of its members. Allocates.
  /// @throws std::invalid_argument  a value out of its range, or a map of another size: what, the range, what was found
  QUEN_EXPORT explicit Detector(const DetectorConfig& config);

  /// One frame. Allocates nothing; any number of threads may expose with one detector at once.
  ///
  /// @param values        685 440 expected values, in units of the frame
  /// @param frame_number  which frame this is: the same number gives the same noise
  /// @param frame         685 440 counts
  /// @throws std::invalid_argument  a span of another length; `frame` is untouched then
  QUEN_EXPORT void Expose(gsl::span<const double> values, std::uint64_t frame_number,
                          gsl::span<std::uint16_t> frame) const;

 private:
  std::shared_ptr<const Plan> plan_;
};

}  // namespace quen::detector
