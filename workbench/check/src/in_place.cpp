#include "workbench/check/src/in_place.hpp"

#include "common/statistics/quantile.hpp"
#include "workbench/check/src/matrix_layouts.hpp"

namespace quen::workbench {

double ShareInPlace(const SlopeSpace& gradients, const Fields& slopes) {
  const std::vector<SlopeSpace::Candidate> candidates = gradients.InPlace(slopes);
  if (candidates.empty()) return 0.0;
  const Layout& layout = candidates.front().layout;
  Fields right = slopes;
  right.bottomRows(right.rows() / 2) *= (layout.is_x_flipped ? -1.0 : 1.0) / layout.x_unit;
  const Eigen::VectorXd shares = gradients.Shares(right);
  return quen::common::UpperMedian({shares.begin(), shares.end()});
}

double UnevennessOfRest(const Fields& slopes, const SlopeSpace& gradients, const Lattice& lattice,
                        const std::vector<std::size_t>& used) {
  const double smooth_share = ShareInPlace(gradients, slopes);
  return smooth_share > kSurelyInPlace ? 1.0 : Unevenness(Sample(slopes), lattice, used) / (1.0 - smooth_share);
}

}  // namespace quen::workbench
