#pragma once

#include <string>
#include <vector>

namespace quen::workbench {

/// A value with its error.
struct PointWithError {
  double x;
  double y;
  double error;  ///< NaN: none is drawn
};

struct CurveOfPoints {
  std::string name;
  std::vector<PointWithError> points;
};

/// Curves in a panel of their own.
struct PanelOfCurves {
  std::string title;
  std::vector<CurveOfPoints> curves;  ///< the same names in all panels
};

/// A PNG picture of panels below each other, with the same axes, as means with error bars.
/// @throws std::runtime_error  no point is finite; the picture is too large
std::string DrawPoints(const std::vector<PanelOfCurves>& panels);

}  // namespace quen::workbench
