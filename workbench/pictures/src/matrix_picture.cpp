#include "workbench/pictures/matrix_picture.hpp"

#include <fmt/format.h>

#include <utility>

#include "workbench/pictures/src/matrix_cells.hpp"

namespace quen::workbench {
namespace {

/// What a cell shows, where it is not one element.
std::string Remark(const CellGroup& group) {
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
  PaintCells(cr, box, matrix, largest);
  Plot(cr, box, LinearScale(static_cast<double>(matrix.cols())), rows).DrawFrame(title + Remark(CellGroup(matrix)));
  Write(cr, box.left, box.top + box.height + 46.0, CellWords(largest) + "; black is not finite");
  return canvas.Png();
}

}  // namespace quen::workbench
