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

/// Σ even², Σ even · odd, Σ odd² along one axis.
struct Norms {
  double even = 0.0;
  double mixed = 0.0;
  double odd = 0.0;
};

Norms NormsOf(const Gaussian& shape, double centre, std::size_t size) {
  Norms norms;
  AxisWeights weights;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled as far as it is read
  for (std::size_t first = 0; first < size; first += kTile) {
    const std::size_t count = std::min(kTile, size - first);
    shape.Fill(centre, first, count, weights);
    for (std::size_t k = 0; k < count; ++k) {
      norms.even += weights.even[k] * weights.even[k];
      norms.mixed += weights.even[k] * weights.odd[k];
      norms.odd += weights.odd[k] * weights.odd[k];
    }
  }
  return norms;
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
///     | XM·YE  XO·YE  XM·YM | · | b_x | = | Σ p·(x − c_x)·g |,   E, M, O: even, mixed and odd norms of X and Y,
///     | XE·YM  XM·YM  XE·YO |   | b_y |   | Σ p·(y − c_y)·g |
///
/// by Cholesky's decomposition; nothing where the pixels do not tell the three apart.
std::optional<Solution> Solve(const Norms& nx, const Norms& ny, const WeightedSums& sums) {
  constexpr double kSingular = 1e-12;  // of a diagonal element
  const double aa = nx.even * ny.even;
  if (!(aa > 0.0)) return std::nullopt;
  const double ab = nx.mixed * ny.even;
  const double ac = nx.even * ny.mixed;
  const double bb = nx.odd * ny.even - ab * ab / aa;
  if (!(bb > kSingular * nx.odd * ny.even)) return std::nullopt;
  const double bc = nx.mixed * ny.mixed - ab * ac / aa;
  const double cc = nx.even * ny.odd - ac * ac / aa - bc * bc / bb;
  if (!(cc > kSingular * nx.even * ny.odd)) return std::nullopt;
  const double right_b = sums.x - ab / aa * sums.even;
  const double right_c = sums.y - ac / aa * sums.even - bc / bb * right_b;
  const double b_y = right_c / cc;
  const double b_x = (right_b - bc * b_y) / bb;
  const double a = (sums.even - ab * b_x - ac * b_y) / aa;
  return Solution{a, b_x, b_y};
}

}  // namespace

GaussianFit::GaussianFit(const GaussianFitConfig& config) : steps_(config.steps) {
  RequireInRange("GaussianFit: fwhm", config.fwhm, 1.0, 100.0);
  RequireInRange("GaussianFit: steps", config.steps, 1.0, 100.0);
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
    const WeightedSums sums = SumWeighted(level, pixels, shape_->Along(centre.x), shape_->Along(centre.y));
    const std::optional<Solution> solution =
        Solve(NormsOf(*shape_, centre.x, pixels.width), NormsOf(*shape_, centre.y, pixels.height), sums);
    flux = solution ? 2.0 * std::numbers::pi * sigma * sigma * solution->a : 0.0;
    if (!(flux > 0.0)) return;
    centre.x = moved(centre.x, sigma * sigma * solution->b_x / solution->a, pixels.width);
    centre.y = moved(centre.y, sigma * sigma * solution->b_y / solution->a, pixels.height);
  }
  x = centre.x - reference.x;
  y = centre.y - reference.y;
}

}  // namespace quen::centroiders
