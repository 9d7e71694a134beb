#include "workbench/pictures/mode_picture.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "workbench/pictures/src/panel.hpp"
#include "workbench/pictures/src/vector_field.hpp"

namespace quen::workbench {
namespace {

constexpr Eigen::Index kMostMaps = 12;

/// A bar for the size of each mode; a cross where there is none.
void DrawSizes(cairo_t* cr, const Box& box, const Matrix& slopes, const Overlay& overlay, const std::string& unit) {
  constexpr double kBar = 0.7;
  constexpr double kArm = 4.0;
  std::vector<double> sizes;
  Range range;
  for (Eigen::Index mode = 0; mode < slopes.cols(); ++mode) {
    sizes.push_back(slopes.col(mode).allFinite() ? RmsLength(SlopeField(overlay, slopes.col(mode))) : std::nan(""));
    range.Hold(sizes.back());
  }
  const double most = range.highest > 0.0 ? std::min(range.highest, 1e300) : 1.0;
  const Scale x = LinearScale(static_cast<double>(sizes.size()));
  const Scale y = LinearScale(most);
  for (std::size_t mode = 0; mode < sizes.size(); ++mode) {
    const double middle = box.left + box.width * x.Place(static_cast<double>(mode) + 0.5);
    const double width = kBar * box.width / static_cast<double>(sizes.size());
    if (sizes[mode] > 0.0) {
      const double height = box.height * y.Place(sizes[mode]);
      Use(cr, kCurves[0]);
      cairo_rectangle(cr, middle - 0.5 * width, box.top + box.height - height, width, height);
      cairo_fill(cr);
      continue;
    }
    Use(cr, kInk);
    for (const double side : {-kArm, kArm}) {
      cairo_move_to(cr, middle - kArm, box.top + box.height - 10.0 - side);
      cairo_line_to(cr, middle + kArm, box.top + box.height - 10.0 + side);
    }
    cairo_stroke(cr);
  }
  Plot(cr, box, x, y).DrawFrame("RMS of every mode, " + unit + "; a cross: all zeros, or not finite");
}

}  // namespace

std::string DrawModes(const Matrix& slopes, const Overlay& overlay, const std::string& title, const std::string& unit) {
  constexpr double kWordsHeight = 30.0;
  constexpr double kSizesHeight = 180.0;
  constexpr double kSizesLeft = 100.0;
  std::vector<Panel> panels;
  for (Eigen::Index mode = 0; mode < std::min(kMostMaps, slopes.cols()); ++mode) {
    panels.push_back(
        FieldPanel(fmt::format("mode {}", mode), overlay.rois, SlopeField(overlay, slopes.col(mode)), unit));
  }
  const double words = kTop + PanelsHeight(panels);
  const double sizes = words + kWordsHeight + kTop;
  const Canvas canvas(static_cast<int>(kPanelsWidth), static_cast<int>(sizes + kSizesHeight + kMargin));
  cairo_t* const cr = canvas.Cairo();
  Use(cr, kInk);
  Write(cr, kMargin, kTop - kTitleAbove, title);
  DrawPanels(cr, kTop, panels);
  Use(cr, kInk);
  Write(cr, kMargin, words + kTitleAbove, kArrowWords);
  DrawSizes(cr, {kSizesLeft, sizes, kPanelsWidth - kSizesLeft - kMargin, kSizesHeight}, slopes, overlay, unit);
  return canvas.Png();
}

}  // namespace quen::workbench
