#include "workbench/pictures/matrix_picture.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "workbench/pictures/src/canvas.hpp"
#include "workbench/pictures/src/plot.hpp"

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

double LargestMagnitude(const Matrix& matrix) {
  double largest = 0.0;
  for (const double element : matrix.reshaped()) {
    if (std::isfinite(element)) largest = std::max(largest, std::abs(element));
  }
  return largest > 0.0 ? largest : 1.0;
}

/// Neighbours that share a cell of the picture: no more of those along an axis than anyone could see, nor Cairo take.
struct Group {
  Eigen::Index rows;
  Eigen::Index columns;

  explicit Group(const Matrix& matrix) : rows(Size(matrix.rows())), columns(Size(matrix.cols())) {}

 private:
  static Eigen::Index Size(Eigen::Index elements) {
    constexpr Eigen::Index kMostCells = 8000;
    return (elements + kMostCells - 1) / kMostCells;
  }
};

/// What a cell shows of its elements: the largest magnitude with its sign, or one that is not finite.
double Outstanding(const Eigen::Ref<const Matrix>& elements) {
  double outstanding = 0.0;
  for (const double element : elements.reshaped()) {
    if (!std::isfinite(element)) return element;
    if (std::abs(element) > std::abs(outstanding)) outstanding = element;
  }
  return outstanding;
}

Image CellsOf(const Matrix& matrix, const Group& group, double largest) {
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

void PaintCells(cairo_t* cr, const Box& box, const Matrix& matrix, const Group& group, double largest) {
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

/// What a cell shows, where it is not one element.
std::string Remark(const Group& group) {
  if (group.rows * group.columns == 1) return "";
  return fmt::format(", the largest of {} x {} each", group.rows, group.columns);
}

}  // namespace

std::string DrawMatrix(const Matrix& matrix, const std::string& title) {
  // Long matrices lie or stand.
  const bool is_wide = matrix.cols() > matrix.rows();
  const Box box = {80.0, kTop, is_wide ? 1040.0 : 640.0, is_wide ? 420.0 : 800.0};
  const Canvas canvas(static_cast<int>(box.left + box.width + 40.0), static_cast<int>(box.top + box.height + 60.0));
  cairo_t* const cr = canvas.Cairo();
  const double largest = LargestMagnitude(matrix);
  Scale rows = LinearScale(static_cast<double>(matrix.rows()));
  std::swap(rows.first, rows.last);  // row 0 is at the top
  const Group group(matrix);
  PaintCells(cr, box, matrix, group, largest);
  Plot(cr, box, LinearScale(static_cast<double>(matrix.cols())), rows).DrawFrame(title + Remark(group));
  Write(cr, box.left, box.top + box.height + 46.0,
        "blue " + Short(-largest) + ", white 0, red " + Short(largest) + "; black is not finite");
  return canvas.Png();
}

}  // namespace quen::workbench
