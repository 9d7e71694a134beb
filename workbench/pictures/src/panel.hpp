#pragma once

#include <functional>
#include <string>
#include <vector>

#include "workbench/pictures/src/vector_field.hpp"
#include "workbench/sensor/dimensions.hpp"

/// @file
/// Small pictures of the same size side by side, four in a row, each with a title above and a line below.

namespace quen::workbench {

struct Panel {
  std::string title;
  std::string below;
  std::function<void(cairo_t*, const Box&)> draw;
};

inline constexpr std::size_t kPanelsInARow = 4;
inline constexpr double kPanelSide = 306.0;
inline constexpr double kPanelGap = 22.0;
inline constexpr double kPanelsWidth =
    2.0 * kMargin + kPanelsInARow * kPanelSide + (kPanelsInARow - 1.0) * kPanelGap;  ///< of a whole picture

/// Of as many rows as they take.
double PanelsHeight(const std::vector<Panel>& panels);

/// @param top  of the first row's titles
void DrawPanels(cairo_t* cr, double top, const std::vector<Panel>& panels);

/// An arrow map on the grid of these regions, with the sizes below.
Panel FieldPanel(const std::string& title, const std::vector<Roi>& rois, const VectorField& field,
                 const std::string& unit);

}  // namespace quen::workbench
