#include "centroiders/src/gaussian.hpp"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "shssim/spot.hpp"

namespace quen::centroiders {
namespace {

constexpr double kFarthest = 9.0;  // deviations

}  // namespace

Gaussian::Gaussian(double fwhm) : sigma_(fwhm / shssim::kFwhmPerSigma) {
  const auto count = static_cast<std::size_t>(std::ceil(kFarthest * sigma_)) + 1;
  for (std::size_t k = 0; k < count; ++k) {
    const double u = static_cast<double>(k) / sigma_;
    at_integers_.push_back(std::exp(-0.5 * u * u));
  }
}

// With n the whole number nearest to the centre and f = centre − n,
//
//     g(n ± k − centre) = exp(−k² / (2σ²)) · exp(−f² / (2σ²)) · exp(f / σ²)^±k,
//
// a table, a constant, and two powers that grow and shrink by a factor from one k to the next.
void Gaussian::Fill(double centre, std::size_t first, std::size_t count, AxisWeights& weights) const {
  const double nearest = std::nearbyint(centre);
  const double f = centre - nearest;
  const double growth = std::exp(f / (sigma_ * sigma_));
  const double shrinkage = 1.0 / growth;
  double above = std::exp(-0.5 * f * f / (sigma_ * sigma_));
  double below = above;

  const auto middle = static_cast<std::ptrdiff_t>(nearest) - static_cast<std::ptrdiff_t>(first);
  const auto last = static_cast<std::ptrdiff_t>(count) - 1;
  // An index below 0 becomes a huge one.
  const auto store = [even = weights.even.data(), odd = weights.odd.data(), count](std::ptrdiff_t index, double u,
                                                                                   double g) {
    if (static_cast<std::size_t>(index) >= count) return;
    even[index] = g;
    odd[index] = u * g;
  };
  const std::ptrdiff_t farthest = std::max(middle, last - middle);
  const std::ptrdiff_t known = std::min(farthest + 1, std::ssize(at_integers_));
  const double* const g = at_integers_.data();  // not checked, weight by weight
  double distance = 0.0;
  for (std::ptrdiff_t k = 0; k < known; ++k) {
    store(middle - k, -distance - f, g[k] * below);
    store(middle + k, distance - f, g[k] * above);
    above *= growth;
    below *= shrinkage;
    distance += 1.0;
  }
  for (std::ptrdiff_t k = known; k <= farthest; ++k) {
    store(middle - k, 0.0, 0.0);
    store(middle + k, 0.0, 0.0);
  }
}

}  // namespace quen::centroiders
