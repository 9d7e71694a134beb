#include "workbench/check/src/lattice.hpp"

#include <fmt/format.h>

#include <Eigen/LU>
#include <algorithm>
#include <cmath>
#include <numeric>
#include <set>
#include <utility>

#include "common/statistics/quantile.hpp"

namespace quen::workbench {
namespace {

using Point = Eigen::Vector2d;

std::vector<Point> References(const std::vector<Roi>& rois) {
  std::vector<Point> points;
  points.reserve(rois.size());
  for (const auto& roi : rois) points.emplace_back(roi.x_ref, roi.y_ref);
  return points;
}

/// From each point to the nearest of the others.
double TypicalDistance(const std::vector<Point>& points) {
  std::vector<double> nearest;
  nearest.reserve(points.size());
  for (std::size_t i = 0; i < points.size(); ++i) {
    double least = std::numeric_limits<double>::infinity();
    for (std::size_t j = 0; j < points.size(); ++j) {
      if (j != i) least = std::min(least, (points[j] - points[i]).squaredNorm());
    }
    nearest.push_back(std::sqrt(least));
  }
  return quen::common::UpperMedian(std::move(nearest));
}

/// The mean step from one point to its neighbour along an axis; zero if there is none.
Point Step(const std::vector<Point>& points, int axis, double distance) {
  constexpr double kAcross = 0.35;  // of a step: 19 degrees
  constexpr double kLongest = 1.3;
  Point sum = Point::Zero();
  double count = 0.0;
  for (const Point& from : points) {
    for (const Point& to : points) {
      const Point step = to - from;
      const double along = step[axis];
      const double across = std::abs(step[1 - axis]);
      if (along < 0.7 * distance || along > kLongest * distance || across > kAcross * along) continue;
      sum += step;
      count += 1.0;
    }
  }
  return count > 0.0 ? Point(sum / count) : sum;
}

/// point = origin + steps · place, by least squares for given places.
struct Grid {
  Point origin;
  Eigen::Matrix2d steps;

  [[nodiscard]] Point Exact(const Point& point) const { return steps.inverse() * (point - origin); }
  [[nodiscard]] Point Rounded(const Point& point) const { return Exact(point).array().round(); }
};

Grid Refined(const Grid& grid, const std::vector<Point>& points) {
  const auto rows = static_cast<Eigen::Index>(points.size());
  Eigen::Matrix<double, Eigen::Dynamic, 3> places(rows, 3);
  Eigen::Matrix<double, Eigen::Dynamic, 2> where(rows, 2);
  for (Eigen::Index k = 0; k < rows; ++k) {
    const Point& point = points[static_cast<std::size_t>(k)];
    places.row(k) << 1.0, grid.Rounded(point).transpose();
    where.row(k) = point.transpose();
  }
  const Eigen::Matrix3d normal = places.transpose() * places;
  if (std::abs(normal.determinant()) < 0.5) return grid;  // of whole numbers: all in one line
  const Eigen::Matrix<double, 3, 2> fit = normal.inverse() * (places.transpose() * where);
  return {fit.row(0).transpose(), fit.bottomRows<2>().transpose()};
}

// --- Orders

/// How a list goes through the grid.
struct Traversal {
  bool by_columns = false;
  bool from_right = false;
  bool from_top = false;
  bool to_and_fro = false;
};

std::string Words(const Traversal& traversal) {
  const std::string along_rows = traversal.from_right ? "from right to left" : "from left to right";
  const std::string along_columns =
      traversal.from_top ? "from the last row to the first" : "from the first row to the last";
  return fmt::format("{}{}, {} and {}", traversal.by_columns ? "column by column" : "row by row",
                     traversal.to_and_fro ? " to and fro" : "", traversal.by_columns ? along_columns : along_rows,
                     traversal.by_columns ? along_rows : along_columns);
}

std::vector<std::size_t> Sorted(const Traversal& traversal, const Lattice& lattice,
                                const std::vector<std::size_t>& used) {
  std::vector<std::size_t> order(used.size());
  std::iota(order.begin(), order.end(), 0U);
  int last_column = 0;
  int last_row = 0;
  for (const Place& place : lattice.places) {
    last_column = std::max(last_column, place.column);
    last_row = std::max(last_row, place.row);
  }
  std::ranges::stable_sort(order, {}, [&](std::size_t k) {
    const Place& place = lattice.places[used[k]];
    const int column = traversal.from_right ? last_column - place.column : place.column;
    const int row = traversal.from_top ? last_row - place.row : place.row;
    const int major = traversal.by_columns ? column : row;
    const int minor = traversal.by_columns ? row : column;
    return std::pair(major, traversal.to_and_fro && major % 2 == 1 ? -minor : minor);
  });
  return order;
}

/// The word for going `traversal` where the regions go `base`.
std::string Mistake(const Traversal& traversal, const Traversal& base) {
  const bool turns = traversal.by_columns != base.by_columns;
  const bool x = traversal.from_right != base.from_right;
  const bool y = traversal.from_top != base.from_top;
  if (traversal.to_and_fro) return turns ? "serpentine_columns" : "serpentine";
  if (turns) return x == y ? (x ? "by_columns_mirrored" : "by_columns") : (x ? "turned_90" : "turned_270");
  return x ? (y ? "turned_180" : "mirrored_x") : "mirrored_y";
}

}  // namespace

std::optional<Lattice> Lattice::Fit(const std::vector<Roi>& rois) {
  constexpr double kFar = 0.4;  // of a step
  constexpr double kMostOfThem = 0.95;
  constexpr int kRounds = 3;
  constexpr double kMostPlaces = 1e6;  // along either axis; references of 1e300 lie in no grid that can be counted
  const std::vector<Point> points = References(rois);
  if (points.size() < 2 || !std::ranges::all_of(points, [](const Point& point) { return point.allFinite(); })) {
    return std::nullopt;
  }
  const double distance = TypicalDistance(points);
  Grid grid;
  grid.steps << Step(points, 0, distance), Step(points, 1, distance);
  if (!(std::abs(grid.steps.determinant()) > 0.5 * distance * distance)) return std::nullopt;
  const Point middle =
      std::accumulate(points.begin(), points.end(), Point(Point::Zero())) / static_cast<double>(points.size());
  grid.origin = *std::ranges::min_element(points, {}, [&](const Point& point) { return (point - middle).norm(); });
  for (int round = 0; round < kRounds; ++round) grid = Refined(grid, points);

  Point lowest = grid.Rounded(points.front());
  for (const Point& point : points) lowest = lowest.cwiseMin(grid.Rounded(point));
  Lattice lattice = {grid.steps.col(0).norm(), grid.steps.col(1).norm(), {}};
  std::set<Place> taken;
  std::size_t near = 0;
  for (const Point& point : points) {
    const Point place = grid.Rounded(point) - lowest;
    if (!(place.array() < kMostPlaces).all()) return std::nullopt;
    if ((grid.Exact(point) - grid.Rounded(point)).cwiseAbs().maxCoeff() < kFar) ++near;
    lattice.places.push_back({.row = static_cast<int>(place.y()), .column = static_cast<int>(place.x())});
    if (!taken.insert(lattice.places.back()).second) return std::nullopt;
  }
  if (static_cast<double>(near) < kMostOfThem * static_cast<double>(points.size())) return std::nullopt;
  return lattice;
}

NumbersByPlace NumbersOf(const Lattice& lattice, const std::vector<std::size_t>& used) {
  NumbersByPlace numbers;
  for (std::size_t k = 0; k < used.size(); ++k) numbers[lattice.places[used[k]]] = k;
  return numbers;
}

std::vector<ListOrder> ListOrders(const Lattice& lattice, const std::vector<std::size_t>& used) {
  std::vector<Traversal> traversals;
  for (const bool to_and_fro : {false, true}) {
    for (const bool by_columns : {false, true}) {
      for (const bool from_top : {false, true}) {
        for (const bool from_right : {false, true})
          traversals.push_back({by_columns, from_right, from_top, to_and_fro});
      }
    }
  }
  std::vector<std::size_t> own(used.size());
  std::iota(own.begin(), own.end(), 0U);
  std::vector<std::size_t> all(lattice.places.size());
  std::iota(all.begin(), all.end(), 0U);
  const auto base = std::ranges::find_if(
      traversals, [&](const Traversal& traversal) { return Sorted(traversal, lattice, used) == own; });
  const bool is_known = base != traversals.end();
  std::vector<ListOrder> orders = {{"", is_known ? Words(*base) : "in no order that has a name", own, all}};
  for (const Traversal& traversal : traversals) {
    std::vector<std::size_t> place = Sorted(traversal, lattice, used);
    if (place == own) continue;
    orders.push_back({Mistake(traversal, is_known ? *base : Traversal{}), Words(traversal), std::move(place),
                      Sorted(traversal, lattice, all)});
  }
  return orders;
}

}  // namespace quen::workbench
