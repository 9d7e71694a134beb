#include "centroiders/quad_cell.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "centroiders/src/checks.hpp"
#include "centroiders/src/weighted_sums.hpp"
#include "shssim/spot.hpp"

namespace quen::centroiders {
namespace {

/// The part of a pixel beyond a line less the part before it; `u` is from the line to the pixel's centre.
double SignedWeight(double u) { return std::clamp(2.0 * u, -1.0, 1.0); }

/// The response to the drawn spot if the dividing line runs at `line` between whole pixels. With g the spot along one
/// axis, g'(u) = −u / s² · g(u), and a small displacement d of the spot:
///
///     Σ w(u) · g(u − d) / Σ g(u) = Σ w(u) · g(u) / Σ g(u) + d · Σ w(u) · u / s² · g(u) / Σ g(u),   w = SignedWeight.
std::pair<double, double> ZeroAndGainForTheDrawnSpot(double line) {
  constexpr int kFarthest = 9 * static_cast<int>(shssim::kSpotSigma);
  constexpr double kVariance = shssim::kSpotSigma * shssim::kSpotSigma;
  double light = 0.0;
  double zero = 0.0;
  double slope = 0.0;
  for (int k = -kFarthest; k <= kFarthest; ++k) {
    const double u = k - line;
    const double g = std::exp(shssim::kSpotExponent * u * u);
    light += g;
    zero += SignedWeight(u) * g;
    slope += SignedWeight(u) * u / kVariance * g;
  }
  return {zero / light, light / slope};
}

}  // namespace

QuadCell::QuadCell(const QuadCellConfig& config) {
  if (config.gain) RequireWithin("QuadCell: gain", *config.gain, QuadCellLimits::kGain);
  for (std::size_t k = 0; k <= kSteps; ++k) {
    const auto [zero, gain] = ZeroAndGainForTheDrawnSpot(0.5 * static_cast<double>(k) / kSteps);
    responses_.at(k) = config.gain ? Response{0.0, *config.gain} : Response{zero, gain};
  }
}

/// Between the table's entries on a straight line, which errs by less than 10⁻⁶.
double QuadCell::Displacement(double share, double reference) const {
  const double beyond = reference - std::nearbyint(reference);
  const double position = 2.0 * kSteps * std::abs(beyond);
  const std::size_t entry = std::min(static_cast<std::size_t>(position), kSteps - 1);
  const double part = position - static_cast<double>(entry);
  const auto between = [&](double Response::*value) {
    return (1.0 - part) * responses_.at(entry).*value + part * responses_.at(entry + 1).*value;
  };
  const double zero = beyond < 0.0 ? -between(&Response::zero) : between(&Response::zero);
  return between(&Response::gain) * (share - zero);
}

void QuadCell::Measure(const Pixels& pixels, const Point& reference) {
  if (LacksReference(reference)) return;
  const auto sides_of = [](double line) {
    return [line](std::size_t first, std::size_t count, AxisWeights& weights) {
      for (std::size_t k = 0; k < count; ++k) {
        weights.even[k] = 1.0;
        weights.odd[k] = SignedWeight(static_cast<double>(first + k) - line);
      }
    };
  };
  const WeightedSums sums = SumWeighted(common::simd::Best(), pixels, sides_of(reference.x), sides_of(reference.y));
  flux = sums.light;
  if (!(sums.light > 0.0)) return;
  x = Displacement(sums.x / sums.light, reference.x);
  y = Displacement(sums.y / sums.light, reference.y);
}

}  // namespace quen::centroiders
