#pragma once

#include <string>

#include "workbench/sensor/calibration.hpp"

namespace quen::workbench {

/// Draws a matrix, its first row at the top: zero white, negative elements blue, positive ones red, the largest
/// magnitude darkest, elements that are not finite black. Of a matrix with more than 8000 rows or columns, neighbours
/// share a cell, which shows the largest magnitude among them. Returns a PNG file.
/// @throws std::runtime_error  there is no memory for it
std::string DrawMatrix(const Matrix& matrix, const std::string& title);

}  // namespace quen::workbench
