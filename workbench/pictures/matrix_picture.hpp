#pragma once

#include <string>

#include "workbench/sensor/calibration.hpp"

namespace quen::workbench {

/// Draws a matrix, its first row at the top: zero white, negative elements blue, positive ones red, the largest
/// magnitude darkest, black what is not finite. Of a matrix with more than 8000 rows or columns, neighbours share a
/// cell and the largest magnitude shows. Returns a PNG file.
/// @throws std::runtime_error  there is no memory for it
std::string DrawMatrix(const Matrix& matrix, const std::string& title);

}  // namespace quen::workbench
