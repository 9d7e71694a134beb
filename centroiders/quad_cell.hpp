#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "centroiders/pixel_engine.hpp"
#include "common/checks/limits.hpp"

namespace quen::centroiders {

/// What the numbers of QuadCellConfig may be.
struct QuadCellLimits {
  static constexpr common::Limits kGain = {0.0, 1000.0, true};  ///< pixels
};

/// How the share of light becomes a displacement.
struct QuadCellConfig {
  std::optional<double> gain = {};  ///< pixels, within QuadCellLimits; if not given, the one for small
                                    ///< displacements of the drawn spot
};

/// The light of the region's two halves, left and right of the reference point, below and above it:
///
///     x = gain · (right − left) / (right + left).
///
/// A pixel that the dividing line runs through counts for both sides, in parts. The response of a Gaussian spot with
/// deviation s is erf(x / (√2 s)): linear near the middle, with the gain √(π/2) · s, and saturating at the gain. That
/// there are pixels changes the slope of the drawn spot's response, by where in a pixel the line runs: by −2.1 % where
/// it runs through the pixel's centre, to +1.1 % where it runs between two pixels, and the gain by the inverse, +2.2 to
/// −1.1 %. It moves the zero point by up to 0.0041 pixels. Without a given gain, both are taken in; with one, neither
/// is. Flux is the light of the whole region.
///
/// No light is a flux of 0 or less. A NaN reference coordinate gives flux 0 and NaN for both displacements.
class QUEN_EXPORT QuadCell : public PixelEngine {
 public:
  /// @throws std::invalid_argument  `gain` out of its range
  explicit QuadCell(const QuadCellConfig& config = {});

 private:
  void Measure(const Pixels& pixels, const Point& reference) override;

  /// The response near displacement 0:  (right − left) / (right + left) = zero + displacement / gain.
  struct Response {
    double zero;
    double gain;
  };
  static constexpr std::size_t kSteps = 128;

  /// @param share       (right − left) / (right + left)
  /// @param reference   where the dividing line runs
  [[nodiscard]] double Displacement(double share, double reference) const;

  std::array<Response, kSteps + 1> responses_{};  // where the line runs 0 to half a pixel beyond a pixel's centre
};

}  // namespace quen::centroiders
