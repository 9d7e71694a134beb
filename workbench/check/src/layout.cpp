#include "workbench/check/src/layout.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <set>
#include <utility>

#include "workbench/sensor/geometry.hpp"

namespace quen::workbench {
namespace {

using quen::image_processing::Roi;

/// Which of the 33 columns or rows a coordinate is in; none if there is only one.
std::optional<std::size_t> Line(double coordinate, double first, double last) {
  if (!(last > first)) return std::nullopt;
  return static_cast<std::size_t>(std::lround((kGridSize - 1) * (coordinate - first) / (last - first)));
}

/// Number of the slope of each cell, counted from 0 among the used sub-apertures; none where unused.
using Cells = std::array<std::array<std::optional<Eigen::Index>, kGridSize>, kGridSize>;

Cells NumberCells(Layout layout, const Grid& grid, std::vector<std::size_t> used) {
  if (layout == Layout::kOtherOrder) {
    const bool by_rows = !grid.IsListedByRows();
    std::ranges::sort(used, {}, [&](std::size_t i) {
      const auto [column, row] = grid.PlaceOf(i);
      return by_rows ? std::pair(row, column) : std::pair(column, row);
    });
  }
  Cells cells;
  for (std::size_t k = 0; k < used.size(); ++k) {
    auto [column, row] = grid.PlaceOf(used[k]);
    if (layout == Layout::kGridTurned) std::swap(column, row);
    cells[row][column] = static_cast<Eigen::Index>(k);
  }
  return cells;
}

/// The slopes of one mode.
struct Field {
  Eigen::VectorXd x;
  Eigen::VectorXd y;
};

Field FieldOf(const Matrix& fields, Eigen::Index mode, Layout layout) {
  const Eigen::Index half = fields.rows() / 2;
  Eigen::VectorXd slopes = fields.col(mode);
  const double largest = slopes.cwiseAbs().maxCoeff();
  if (largest > 0.0) {
    slopes /= largest;  // squares of what a file holds may be too large, or too small, for a number
    slopes *= std::sqrt(static_cast<double>(slopes.size())) / slopes.norm();
  }
  Field field = {slopes.tail(half), slopes.head(half)};
  if (layout == Layout::kExchanged || layout == Layout::kTurned) std::swap(field.x, field.y);
  if (layout == Layout::kFlipped || layout == Layout::kTurned) field.x = -field.x;
  return field;
}

/// Once around four neighbours: along x below, along y on the right, and back. Slopes between neighbours are the mean
/// of theirs.
double Circulation(const Field& field, Eigen::Index low_left, Eigen::Index low_right, Eigen::Index high_left,
                   Eigen::Index high_right) {
  const auto& [x, y] = field;
  return 0.5 * (x(low_left) + x(low_right) + y(low_right) + y(high_right) - x(high_left) - x(high_right) - y(low_left) -
                y(high_left));
}

}  // namespace

std::optional<Grid> Grid::Find(const std::vector<Roi>& rois) {
  const auto is_finite = [](const Roi& roi) { return std::isfinite(roi.x_ref) && std::isfinite(roi.y_ref); };
  if (!std::ranges::all_of(rois, is_finite)) return std::nullopt;
  const auto [left, right] = std::ranges::minmax(rois, {}, &Roi::x_ref);
  const auto [bottom, top] = std::ranges::minmax(rois, {}, &Roi::y_ref);
  Grid grid;
  std::set<std::pair<std::size_t, std::size_t>> taken;
  for (const Roi& roi : rois) {
    const auto column = Line(roi.x_ref, left.x_ref, right.x_ref);
    const auto row = Line(roi.y_ref, bottom.y_ref, top.y_ref);
    if (!column || !row || !taken.emplace(*column, *row).second) return std::nullopt;
    grid.places_.push_back({*column, *row});
  }
  return grid;
}

double Curl(const Matrix& fields, Layout layout, const Grid& grid, const std::vector<std::size_t>& used) {
  constexpr double kWithoutOrder = 2.0;  // mean square of half the sum of eight independent numbers of mean square 1
  const Cells cells = NumberCells(layout, grid, used);
  double sum = 0.0;
  double count = 0.0;
  for (Eigen::Index mode = 0; mode < fields.cols(); ++mode) {
    const Field field = FieldOf(fields, mode, layout);
    for (std::size_t row = 0; row + 1 < kGridSize; ++row) {
      for (std::size_t column = 0; column + 1 < kGridSize; ++column) {
        const auto& low_left = cells[row][column];
        const auto& low_right = cells[row][column + 1];
        const auto& high_left = cells[row + 1][column];
        const auto& high_right = cells[row + 1][column + 1];
        if (!low_left || !low_right || !high_left || !high_right) continue;
        const double circulation = Circulation(field, *low_left, *low_right, *high_left, *high_right);
        sum += circulation * circulation;
        count += 1.0;
      }
    }
  }
  return count > 0.0 ? sum / count / kWithoutOrder : 0.0;
}

}  // namespace quen::workbench
