#pragma once

#include <array>
#include <cstddef>

#include "centroiders/src/pixel_reader.hpp"
#include "centroiders/src/pixels.hpp"
#include "centroiders/src/symmetric.hpp"
#include "common/simd/level.hpp"

namespace quen::centroiders {

/// What a region's light is expected to be, in counts:
///
///     μ = b + b_x · u + b_y · v + a · g,   g = exp(−(p_xx u² + 2 p_xy u v + p_yy v²) / 2),   (u, v) = (x, y) − centre.
struct SpotModel {
  Point centre = {};
  Symmetric p = {};         ///< the inverse of its variances, with positive eigenvalues
  double height = 0.0;      ///< a
  double background = 0.0;  ///< b
  double slope_x = 0.0;     ///< b_x
  double slope_y = 0.0;     ///< b_y
};

/// Which sums are wanted.
struct Extent {
  std::size_t spot_degree;        ///< highest power of u and v together in functions with g: 1, or 2 for its shape
  std::size_t background_degree;  ///< in functions without g: 0, or 1 for slopes
  bool is_oval;                   ///< if not, p_xy is 0
};

/// Sums over the pixels l of a region with weights w = response / (max(μ, 0) + noise).
struct SpotMoments {
  static constexpr std::size_t kPowers = 5;

  /// [n][j][k]: Σ w · gⁿ · u^j · v^k, for the products of two functions
  std::array<std::array<std::array<double, kPowers>, kPowers>, 3> information{};
  /// [n][j][k]: Σ w · (l − μ) · gⁿ · u^j · v^k, for functions
  std::array<std::array<std::array<double, 3>, 3>, 2> score{};
};

/// The same bits at all levels.
template <typename Number>
SpotMoments SumSpotMoments(common::simd::Level level, const PatchOf<Number>& patch, const SpotModel& model,
                           double noise, const Extent& extent);

/// The sums of a first step, from a model without spot and slopes: height, b_x, b_y and p_xy are 0. All pixels have the
/// same variance, so that the step does not depend on it, and the weights of these sums have a common factor that is
/// left open: of what Solve() makes of them, variances mean nothing. The same bits at all levels.
SpotMoments SumBeforeTheSpot(common::simd::Level level, const Patch& patch, const SpotModel& model,
                             const Extent& extent);

}  // namespace quen::centroiders
