#include "workbench/check/src/slope_space.hpp"

#include <Eigen/Eigenvalues>
#include <algorithm>
#include <cmath>
#include <iterator>
#include <random>
#include <tuple>
#include <utility>

namespace quen::workbench {
namespace {

/// Without the columns of zeros, the others scaled to length 1: files may hold values whose squares are no numbers.
Fields Normalised(const Fields& fields) {
  Fields normalised(fields.rows(), fields.cols());
  Eigen::Index count = 0;
  for (Eigen::Index k = 0; k < fields.cols(); ++k) {
    const double largest = fields.col(k).cwiseAbs().maxCoeff();
    if (largest > 0.0) normalised.col(count++) = (fields.col(k) / largest).normalized();
  }
  normalised.conservativeResize(Eigen::NoChange, count);
  return normalised;
}

/// Chebyshev polynomials 0 to n, and their derivatives.
struct Chebyshev {
  Chebyshev(double t, int n) : values(n + 1), slopes(n + 1) {
    values(0) = 1.0;
    slopes(0) = 0.0;
    if (n == 0) return;
    values(1) = t;
    slopes(1) = 1.0;
    for (int k = 2; k <= n; ++k) {
      values(k) = 2.0 * t * values(k - 1) - values(k - 2);
      slopes(k) = 2.0 * values(k - 1) + 2.0 * t * slopes(k - 1) - slopes(k - 2);
    }
  }

  Eigen::VectorXd values;
  Eigen::VectorXd slopes;
};

/// References of the used sub-apertures, from −1 to 1.
Eigen::MatrixXd PointsOf(const std::vector<Roi>& rois, const std::vector<std::size_t>& used) {
  Eigen::MatrixXd points(static_cast<Eigen::Index>(used.size()), 2);
  for (std::size_t k = 0; k < used.size(); ++k) {
    points.row(static_cast<Eigen::Index>(k)) << rois[used[k]].x_ref, rois[used[k]].y_ref;
  }
  const Eigen::RowVector2d low = points.colwise().minCoeff();
  const Eigen::RowVector2d high = points.colwise().maxCoeff();
  const double radius = std::max(1.0, 0.5 * (high - low).maxCoeff());  // one scale, or y slopes were not x slopes' like
  return (points.rowwise() - 0.5 * (low + high)) / radius;
}

/// Rows of one block, in the order of the used sub-apertures, as they are in each of the orders: side by side.
Eigen::MatrixXd Ordered(const Fields& fields, Eigen::Index first, Eigen::Index step,
                        const std::vector<ListOrder>& orders) {
  Eigen::MatrixXd blocks(fields.rows() / 2, fields.cols() * static_cast<Eigen::Index>(orders.size()));
  for (Eigen::Index column = 0; const ListOrder& order : orders) {
    for (Eigen::Index k = 0; k < blocks.rows(); ++k) {
      const auto to = static_cast<Eigen::Index>(order.place[static_cast<std::size_t>(k)]);
      blocks.block(to, column, 1, fields.cols()) = fields.row(first + step * k);
    }
    column += fields.cols();
  }
  return blocks;
}

}  // namespace

SlopeSpace::SlopeSpace(const Fields& vectors) : vectors_(Normalised(vectors)) {
  constexpr double kRidge = 1e-10;  // of vectors of length 1: where they depend on each other, to rounding
  Eigen::MatrixXd gram = kRidge * Eigen::MatrixXd::Identity(vectors_.cols(), vectors_.cols());
  gram.selfadjointView<Eigen::Lower>().rankUpdate(vectors_.transpose());  // all that is read of it, in half the time
  gram_.compute(gram);
}

SlopeSpace SlopeSpace::OfGradients(const std::vector<Roi>& rois, const std::vector<std::size_t>& used, int degree) {
  const Eigen::MatrixXd points = PointsOf(rois, used);
  const Eigen::Index half = points.rows();
  Fields gradients(2 * half, (degree + 1) * (degree + 2) / 2 - 1);
  for (Eigen::Index k = 0; k < half; ++k) {
    const Chebyshev x(points(k, 0), degree);
    const Chebyshev y(points(k, 1), degree);
    Eigen::Index column = 0;
    for (int i = 0; i <= degree; ++i) {
      for (int j = i == 0 ? 1 : 0; i + j <= degree; ++j) {
        gradients(k, column) = x.values(i) * y.slopes(j);
        gradients(half + k, column) = x.slopes(i) * y.values(j);
        ++column;
      }
    }
  }
  return SlopeSpace(gradients);
}

SlopeSpace SlopeSpace::OfSurfaces(const std::vector<Roi>& rois, const std::vector<std::size_t>& used, int degree) {
  const Eigen::MatrixXd points = PointsOf(rois, used);
  Fields surfaces(points.rows(), (degree + 1) * (degree + 2) / 2);
  for (Eigen::Index k = 0; k < points.rows(); ++k) {
    const Chebyshev x(points(k, 0), degree);
    const Chebyshev y(points(k, 1), degree);
    Eigen::Index column = 0;
    for (int i = 0; i <= degree; ++i) {
      for (int j = 0; i + j <= degree; ++j) surfaces(k, column++) = x.values(i) * y.values(j);
    }
  }
  return SlopeSpace(surfaces);
}

Eigen::MatrixXd SlopeSpace::Solved(const Eigen::MatrixXd& products) const { return gram_.matrixL().solve(products); }

Eigen::MatrixXd SlopeSpace::Basis() const { return Solved(vectors_.transpose()).transpose(); }

Eigen::VectorXd SlopeSpace::Shares(const Fields& fields) const {
  Eigen::VectorXd shares = Eigen::VectorXd::Zero(fields.cols());
  for (Eigen::Index k = 0; k < fields.cols(); ++k) {
    const Fields field = Normalised(fields.col(k));
    if (field.cols() > 0) shares(k) = Solved(vectors_.transpose() * field).squaredNorm();
  }
  return shares;
}

double SlopeSpace::Share(const Fields& fields) const {
  const Fields normalised = Normalised(fields);
  if (normalised.cols() == 0) return 0.0;
  return Solved(vectors_.transpose() * normalised).squaredNorm() / static_cast<double>(normalised.cols());
}

Eigen::MatrixXd SlopeSpace::PartOfY(const Eigen::MatrixXd& slopes) const {
  return Solved(vectors_.topRows(slopes.rows()).transpose() * slopes);
}

Eigen::MatrixXd SlopeSpace::PartOfX(const Eigen::MatrixXd& slopes) const {
  return Solved(vectors_.bottomRows(slopes.rows()).transpose() * slopes);
}

/// With x in units r times too small the share is (A + 2 r B + r² C) / (Y + r² X): the largest eigenvalue of a 2 × 2
/// problem says what r is, and its sign whether a block is flipped. Where even that explains little, there is no unit.
std::vector<SlopeSpace::Candidate> SlopeSpace::Signs(const Block& y, const Block& x, const Layout& layout,
                                                     const UnitLimits& limits) {
  constexpr double kEnough = 0.75;
  const double y_square = y.square;
  const double x_square = x.square;
  if (!(y_square > 0.0) || !(x_square > 0.0)) return {};
  const double a = y.part.squaredNorm();
  const double b = y.part.cwiseProduct(x.part).sum();
  const double c = x.part.squaredNorm();
  const auto share = [&](double r) { return (a + 2.0 * r * b + r * r * c) / (y_square + r * r * x_square); };
  std::vector<Candidate> candidates;
  for (const bool is_flipped : {false, true}) {
    Layout signs = layout;
    signs.is_x_flipped = is_flipped;
    candidates.push_back({signs, share(is_flipped ? -1.0 : 1.0)});
  }
  Eigen::Matrix2d scaled;  // by the blocks' own sizes
  const double both = b / (std::sqrt(y_square) * std::sqrt(x_square));
  scaled << a / y_square, both, both, c / x_square;
  Eigen::SelfAdjointEigenSolver<Eigen::Matrix2d> solver;
  solver.computeDirect(scaled);  // by formula: the steps for larger ones take the compiler ten seconds
  const Eigen::Vector2d best = solver.eigenvectors().col(1);
  constexpr double kLeastPart = 0.05;  // of both blocks together; one axis alone says nothing of the other's unit
  if (best.cwiseAbs().minCoeff() < kLeastPart) return candidates;
  const double ratio = best(1) / best(0) * std::sqrt(y_square / x_square);
  const double size = std::abs(ratio);
  const double in_one_unit = candidates[ratio < 0.0 ? 1 : 0].share;
  if (std::isfinite(ratio) && share(ratio) > kEnough && (size > limits.size || size < 1.0 / limits.size) &&
      1.0 - share(ratio) < (1.0 - limits.gain) * (1.0 - in_one_unit)) {
    Layout units = layout;
    units.is_x_flipped = ratio < 0.0;
    units.x_unit = 1.0 / size;
    candidates.push_back({units, share(ratio)});
  }
  return candidates;
}

std::vector<SlopeSpace::Candidate> SlopeSpace::InPlace(const Fields& fields) const {
  const Eigen::Index half = fields.rows() / 2;
  constexpr UnitLimits kLimits = {1.1, 0.0};
  const Fields normalised = Normalised(fields);
  const Fields y = normalised.topRows(half);
  const Fields x = normalised.bottomRows(half);
  std::vector<Candidate> candidates =
      Signs({PartOfY(y), y.squaredNorm()}, {PartOfX(x), x.squaredNorm()}, Layout(), kLimits);
  std::ranges::stable_sort(candidates, std::greater(), &Candidate::share);
  return candidates;
}

std::vector<SlopeSpace::Candidate> SlopeSpace::Try(const Fields& fields, const Fields& transposed,
                                                   const std::vector<ListOrder>& orders) const {
  constexpr UnitLimits kLimits = {1.2, 0.25};
  const Eigen::Index half = vectors_.rows() / 2;
  std::vector<Candidate> candidates;
  for (const bool is_transposed : {false, true}) {
    const Fields sample = Sample(is_transposed ? transposed : fields);
    for (const bool is_interleaved : {false, true}) {
      const Eigen::MatrixXd first = Ordered(sample, 0, is_interleaved ? 2 : 1, orders);
      const Eigen::MatrixXd second = Ordered(sample, is_interleaved ? 1 : half, is_interleaved ? 2 : 1, orders);
      for (const bool is_x_first : {false, true}) {
        const auto& [y, x] = is_x_first ? std::tie(second, first) : std::tie(first, second);
        const Eigen::MatrixXd y_parts = PartOfY(y);
        const Eigen::MatrixXd x_parts = PartOfX(x);
        for (std::size_t order = 0; order < orders.size(); ++order) {
          Layout layout;
          layout.is_transposed = is_transposed;
          layout.is_interleaved = is_interleaved;
          layout.is_x_first = is_x_first;
          layout.order = order;
          const auto in_order = [&](const Eigen::MatrixXd& all) {
            return all.middleCols(static_cast<Eigen::Index>(order) * sample.cols(), sample.cols());
          };
          std::ranges::copy(Signs({in_order(y_parts), in_order(y).squaredNorm()},
                                  {in_order(x_parts), in_order(x).squaredNorm()}, layout, kLimits),
                            std::back_inserter(candidates));
        }
      }
    }
  }
  std::ranges::stable_sort(candidates, std::greater(), &Candidate::share);
  return candidates;
}

Fields Sample(const Fields& fields, Eigen::Index sums) {
  const Fields normalised = Normalised(fields);
  std::mt19937 random(1);  // NOLINT(cert-msc51-cpp): the same examination each time
  Eigen::MatrixXd signs(normalised.cols(), sums);
  for (double& sign : signs.reshaped()) sign = random() % 2 == 0 ? 1.0 : -1.0;
  return normalised * signs;
}

}  // namespace quen::workbench
