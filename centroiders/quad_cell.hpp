#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "centroiders/pixel_engine.hpp"

namespace quen::centroiders {

struct QuadCellConfig {
  std::optional<double> gain =
      {};  ///< pixels, above 0 to 1000; if not given, the one for small displacements of the drawn
           ///< spot
};

/// The light of the region's two halves, left and right of the reference point, below and above it:
///
///     x = gain · (right − left) / (right + left).
///
/// A pixel that the dividing line runs through counts for both sides, in parts. The response of a Gaussian spot with
/// deviation s is erf(x / (√2 s)): linear near the middle, with the gain √(π/2) · s, and saturating at the gain. That
/// there are pixels changes the gain by up to 1 %, and the zero point by up to 0.005 pixels, by where in a pixel the line
/// runs; for the drawn spot both are taken in. Flux is the light of the whole region.
///
/// A NaN reference coordinate gives flux 0 and NaN for both displacements.
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
