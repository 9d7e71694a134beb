#include "workbench/pictures/src/matrix_cells.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace quen::workbench {
namespace {

/// Red, green and blue as Cairo packs them. A value from −1 to 1; others, NaN included, are black.
std::uint32_t PackedColour(double value) {
  if (!(std::abs(value) <= 1.0)) return 0;
  const double pale = 1.0 - std::abs(value);
  const auto byte = [](double share) { return static_cast<std::uint32_t>(std::lround(255.0 * share)); };
  const double red = value < 0.0 ? pale : 1.0 - 0.3 * value;
  const double blue = value < 0.0 ? 1.0 + 0.3 * value : pale;
  return byte(red) << 16U | byte(pale) << 8U | byte(blue);
}

/// Elements that share a cell along an axis.
Eigen::Index GroupSize(Eigen::Index elements) {
  constexpr Eigen::Index kMostCells = 8000;
  return (elements + kMostCells - 1) / kMostCells;
}

/// What a cell shows of its elements: the largest magnitude with its sign, or one that is not finite.
double Outstanding(const Eigen::Ref<const Matrix>& elements) {
  double outstanding = 0.0;
  for (const double element : elements.reshaped()) {
    if (!std::isfinite(element)) return element;
    if (std::abs(element) > std::abs(outstanding)) outstanding = element;
  }
  return outstanding;
}

Image CellsOf(const Matrix& matrix, const CellGroup& group, double largest) {
  const Eigen::Index height = (matrix.rows() + group.rows - 1) / group.rows;
  const Eigen::Index width = (matrix.cols() + group.columns - 1) / group.columns;
  Image image(static_cast<std::size_t>(width), static_cast<std::size_t>(height));
  for (Eigen::Index y = 0; y < height; ++y) {
    const Eigen::Index row = y * group.rows;
    const Eigen::Index rows = std::min(group.rows, matrix.rows() - row);
    std::uint32_t* const line = image.Row(static_cast<std::size_t>(y));
    for (Eigen::Index x = 0; x < width; ++x) {
      const Eigen::Index column = x * group.columns;
      const Eigen::Index columns = std::min(group.columns, matrix.cols() - column);
      line[x] = PackedColour(Outstanding(matrix.block(row, column, rows, columns)) / largest);
    }
  }
  return image;
}

}  // namespace

CellGroup::CellGroup(const Matrix& matrix) : rows(GroupSize(matrix.rows())), columns(GroupSize(matrix.cols())) {}

double LargestMagnitude(const Matrix& matrix) {
  double largest = 0.0;
  for (const double element : matrix.reshaped()) {
    if (std::isfinite(element)) largest = std::max(largest, std::abs(element));
  }
  return largest > 0.0 ? largest : 1.0;
}

void PaintCells(cairo_t* cr, const Box& box, const Matrix& matrix, double largest) {
  const CellGroup group(matrix);
  const Image image = CellsOf(matrix, group, largest);
  const double width = static_cast<double>(matrix.cols()) / static_cast<double>(group.columns);  // of the last, a part
  const double height = static_cast<double>(matrix.rows()) / static_cast<double>(group.rows);
  cairo_save(cr);
  cairo_translate(cr, box.left, box.top);
  cairo_scale(cr, box.width / width, box.height / height);
  cairo_set_source_surface(cr, image.Filled(), 0.0, 0.0);
  const bool is_enlarged = box.height > height;
  cairo_pattern_set_filter(cairo_get_source(cr), is_enlarged ? CAIRO_FILTER_NEAREST : CAIRO_FILTER_GOOD);
  cairo_rectangle(cr, 0.0, 0.0, width, height);
  cairo_fill(cr);
  cairo_restore(cr);
}

std::string CellWords(double largest) { return "blue " + Short(-largest) + ", white 0, red " + Short(largest); }

}  // namespace quen::workbench
