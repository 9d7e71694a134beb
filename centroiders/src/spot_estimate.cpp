#include "centroiders/src/spot_estimate.hpp"

#include <cmath>

namespace quen::centroiders {
namespace {

constexpr double kMostChange = 0.7;

/// The root of the sum of the squared eigenvalues of a change of variances relative to (2 P)⁻¹.
double RelativeSize(const Symmetric& change, const Symmetric& p) {
  return 2.0 * std::sqrt(TraceOfProduct(change, p.Transform(change)));
}

/// With a part f of the correction, the variances change by f · size / (height + f · light), which is to be kMostChange
/// at the most: so there is light left.
double PartToTake(double height, double light, double size) {
  if (size <= kMostChange * (height + light)) return 1.0;
  return kMostChange * height / (size - kMostChange * light);
}

}  // namespace

std::optional<SpotEstimate> EstimateSpot(double height, const Symmetric& p, const Correction& correction,
                                         SpotShape shape) {
  const bool is_first = !(height > 0.0);
  const Symmetric c = 0.5 * p.Inverse();
  const double added = correction.height + TraceOfProduct(c, correction.square);
  const Symmetric widening = 2.0 * c.Transform(correction.square);
  const double size = RelativeSize(widening, p);
  const double part = is_first || shape == SpotShape::kGiven ? 1.0 : PartToTake(height, added, size);
  const double light = height + part * added;
  if (!(light > 0.0)) return std::nullopt;

  const double share = part / light;
  const Point of_linear = c * correction.linear;
  const Point mean = {share * of_linear.x, share * of_linear.y};
  Symmetric change = {0.0, 0.0, 0.0};  // of the variances
  if (shape != SpotShape::kGiven) {
    change = share * widening - Symmetric{mean.x * mean.x, mean.x * mean.y, mean.y * mean.y};
  }
  if (shape == SpotShape::kRound) change = {0.5 * change.Trace(), 0.0, 0.5 * change.Trace()};
  const double relative = RelativeSize(change, p);
  if (relative > kMostChange) change = (kMostChange / relative) * change;

  const Symmetric s = (c + change).Inverse();
  const Symmetric estimate = s - p;
  const Point centre = estimate.Inverse() * (s * mean);
  // The product's light is that of the spot's height and g's where they meet, over √(det C · det S).
  const Point p_mean = p * mean;
  const double exponent = 0.5 * (centre.x * p_mean.x + centre.y * p_mean.y);
  const double new_height = light * std::sqrt(s.Determinant() * c.Determinant()) * (1.0 + exponent);
  return SpotEstimate{new_height, centre, estimate, part, 2.0 * relative / part};
}

}  // namespace quen::centroiders
