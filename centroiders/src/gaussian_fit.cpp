#include "centroiders/gaussian_fit.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <optional>

#include "centroiders/src/brightness.hpp"
#include "centroiders/src/checks.hpp"
#include "centroiders/src/gaussian.hpp"

namespace quen::centroiders {
namespace {

/// Fills as shape.Along does, and leaves the norms of the whole axis: it is filled from its beginning to its end, for
/// each row of tiles anew.
auto AlongWithNorms(common::simd::Level level, const Gaussian& shape, double centre, Norms& norms) {
  return [level, &shape, centre, &norms](std::size_t first, std::size_t count, AxisWeights& weights) {
    if (first == 0) norms = {};
    shape.FillAndAddNorms(level, centre, first, count, weights, norms);
  };
}

/// Height and slopes of the closest a · g + b_x · (x − c_x) · g + b_y · (y − c_y) · g.
struct Solution {
  double a;
  double b_x;
  double b_y;
};

/// Solves the normal equations
///
///     | XE·YE  XM·YE  XE·YM |   | a   |   | Σ p·g           |
///     | XM·YE  XO·YE  XM·YM | · | b_x | = | Σ p·(x − c_x)·g |,   E, M, O: even, mixed and odd norms of X and Y;
///     | XE·YM  XM·YM  XE·YO |   | b_y |   | Σ p·(y − c_y)·g |
///
/// nothing where the pixels do not tell the three apart. With a eliminated, b_x and b_y have nothing in common: what is
/// left beside the diagonal is XM·YM − XM·YE · XE·YM / (XE·YE) = 0.
std::optional<Solution> Solve(const Norms& nx, const Norms& ny, const WeightedSums& sums) {
  constexpr double kSingular = 1e-12;  // of a diagonal element
  if (!(nx.even > 0.0 && ny.even > 0.0)) return std::nullopt;
  const double slant_x = nx.mixed / nx.even;
  const double slant_y = ny.mixed / ny.even;
  const double odd_x = nx.odd - slant_x * nx.mixed;
  const double odd_y = ny.odd - slant_y * ny.mixed;
  if (!(odd_x > kSingular * nx.odd && odd_y > kSingular * ny.odd)) return std::nullopt;
  const double b_x = (sums.x - slant_x * sums.even) / (odd_x * ny.even);
  const double b_y = (sums.y - slant_y * sums.even) / (odd_y * nx.even);
  return Solution{sums.even / (nx.even * ny.even) - slant_x * b_x - slant_y * b_y, b_x, b_y};
}

}  // namespace

GaussianFit::GaussianFit(const GaussianFitConfig& config) : steps_(config.steps) {
  RequireWithin("GaussianFit: fwhm", config.fwhm, GaussianFitLimits::kFwhm);
  RequireWithin("GaussianFit: steps", config.steps, GaussianFitLimits::kSteps);
  shape_ = std::make_shared<const Gaussian>(config.fwhm);
}

void GaussianFit::Measure(const Pixels& pixels, const Point& reference) {
  const common::simd::Level level = common::simd::Best();

  const double sigma = shape_->Sigma();
  const auto moved = [sigma](double centre, double step, std::size_t size) {
    return std::clamp(centre + std::clamp(step, -sigma, sigma), 0.0, static_cast<double>(size - 1));
  };
  Point centre = BrightestPoint(level, pixels);
  for (int step = 0; step < steps_; ++step) {
    Norms nx;
    Norms ny;
    const WeightedSums sums = SumWeighted(level, pixels, AlongWithNorms(level, *shape_, centre.x, nx),
                                          AlongWithNorms(level, *shape_, centre.y, ny));
    const std::optional<Solution> solution = Solve(nx, ny, sums);
    flux = solution ? 2.0 * std::numbers::pi * sigma * sigma * solution->a : 0.0;
    if (!(flux > 0.0)) return;
    centre.x = moved(centre.x, sigma * sigma * solution->b_x / solution->a, pixels.width);
    centre.y = moved(centre.y, sigma * sigma * solution->b_y / solution->a, pixels.height);
  }
  x = centre.x - reference.x;
  y = centre.y - reference.y;
}

}  // namespace quen::centroiders
