#pragma once

#include "workbench/pictures/src/plot.hpp"
#include "workbench/sensor/matrices.hpp"

namespace quen::workbench {

/// Neighbours that share a cell of the picture: no more of those along an axis than anyone could see, nor Cairo take.
struct CellGroup {
  explicit CellGroup(const Matrix& matrix);

  Eigen::Index rows;
  Eigen::Index columns;
};

/// The largest magnitude of the elements that are finite; 1 if that is zero.
double LargestMagnitude(const Matrix& matrix);

/// Paints a matrix, its first row at the top: zero white, negative elements blue, positive ones red, those of a largest
/// magnitude darkest, elements that are not finite black.
void PaintCells(cairo_t* cr, const Box& box, const Matrix& matrix, double largest);

/// "blue -2, white 0, red 2".
std::string CellWords(double largest);

}  // namespace quen::workbench
