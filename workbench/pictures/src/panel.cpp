#include "workbench/pictures/src/panel.hpp"

namespace quen::workbench {
namespace {

constexpr double kTitleHeight = 26.0;
constexpr double kBelowHeight = 34.0;
constexpr double kRowHeight = kTitleHeight + kPanelSide + kBelowHeight;

}  // namespace

double PanelsHeight(const std::vector<Panel>& panels) {
  const std::size_t rows = (panels.size() + kPanelsInARow - 1) / kPanelsInARow;
  return kRowHeight * static_cast<double>(rows);
}

void DrawPanels(cairo_t* cr, double top, const std::vector<Panel>& panels) {
  constexpr double kBaseLine = 18.0;
  for (std::size_t k = 0; k < panels.size(); ++k) {
    const std::size_t row = k / kPanelsInARow;
    const double left = kMargin + (kPanelSide + kPanelGap) * static_cast<double>(k % kPanelsInARow);
    const double title = top + kRowHeight * static_cast<double>(row);
    const Box box = {left, title + kTitleHeight, kPanelSide, kPanelSide};
    Use(cr, kInk);
    Write(cr, left, title + kBaseLine, Shortened(cr, panels[k].title, kPanelSide));
    Write(cr, left, box.top + kPanelSide + kBaseLine, Shortened(cr, panels[k].below, kPanelSide));
    cairo_new_path(cr);  // text leaves a point
    cairo_save(cr);
    cairo_rectangle(cr, box.left, box.top, box.width, box.height);
    cairo_clip(cr);
    panels[k].draw(cr, box);
    cairo_restore(cr);
    cairo_new_path(cr);
    Use(cr, kGrid);
    cairo_set_line_width(cr, 1.0);
    cairo_rectangle(cr, box.left, box.top, box.width, box.height);
    cairo_stroke(cr);
  }
}

Panel FieldPanel(const std::string& title, const std::vector<Roi>& rois, const VectorField& field,
                 const std::string& unit) {
  return {title, SizeWords(field, unit),
          [rois, field](cairo_t* cr, const Box& box) { DrawVectorField(cr, DetectorMap(box, rois), field); }};
}

}  // namespace quen::workbench
