#include "workbench/pictures/field_picture.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "workbench/pictures/frame_picture.hpp"
#include "workbench/pictures/src/plane.hpp"
#include "workbench/pictures/src/plot.hpp"
#include "workbench/sensor/dimensions.hpp"

namespace quen::workbench {
namespace {

constexpr double kSecond = kMargin + static_cast<double>(kFrameWidth) + 40.0;  // left edge of the second plane
constexpr double kHeight = kTop + static_cast<double>(kFrameHeight) + 30.0;

void DrawBorder(cairo_t* cr, double left, const std::string& title) {
  Use(cr, kGrid);
  cairo_set_line_width(cr, 1.0);
  cairo_rectangle(cr, left, kTop, kFrameWidth, kFrameHeight);
  cairo_stroke(cr);
  Use(cr, kInk);
  Write(cr, left, kTop - kTitleAbove, title);
}

/// Where a value lies in a range, from 0 to 1. In halves: the whole of it may be more than a number holds.
double Share(double value, const Range& range) {
  const double length = range.highest / 2.0 - range.lowest / 2.0;
  return length > 0.0 ? (value / 2.0 - range.lowest / 2.0) / length : 1.0;
}

/// From nearly white for the least to dark blue for the most.
Colour LightColour(double share) { return {0.93 - 0.90 * share, 0.95 - 0.75 * share, 0.98 - 0.50 * share, 1.0}; }

void DrawLight(cairo_t* cr, const Plane& plane, const Overlay& overlay, const std::vector<double>& flux) {
  Range range;
  std::ptrdiff_t lost = 0;
  for (std::size_t i = 0; i < overlay.rois.size(); ++i) {
    if (!overlay.IsUsed(i)) continue;
    range.Hold(flux[i]);
    lost += std::isfinite(flux[i]) ? 0 : 1;
  }
  const auto [least, most] = range;
  for (std::size_t i = 0; i < overlay.rois.size(); ++i) {
    if (overlay.IsUsed(i) && std::isfinite(flux[i])) plane.Fill(overlay.rois[i], LightColour(Share(flux[i], range)));
  }
  const std::string ends =
      most >= least ? Short(least) + " (light) to " + Short(most) + " (dark)" : std::string("none");
  DrawBorder(cr, kSecond, "Flux of the used sub-apertures: " + ends + NotFinite(lost));
}

}  // namespace

std::string DrawField(const Overlay& overlay, const std::vector<double>& flux) {
  const double right = flux.empty() ? kMargin : kSecond;
  const Canvas canvas(static_cast<int>(right + static_cast<double>(kFrameWidth) + kMargin), static_cast<int>(kHeight));
  const Plane plane(canvas.Cairo(), kMargin, kTop, kFrameHeight);
  plane.DrawOutlines(overlay);
  plane.DrawArrows(overlay, ArrowMagnification(overlay));
  DrawBorder(canvas.Cairo(), kMargin, "Displacements, row 0 at the bottom, " + ArrowLegend(overlay));
  if (!flux.empty()) DrawLight(canvas.Cairo(), Plane(canvas.Cairo(), kSecond, kTop, kFrameHeight), overlay, flux);
  return canvas.Png();
}

std::string DrawRegions(const Overlay& overlay) {
  constexpr double kDot = 1.5;
  const Canvas canvas(static_cast<int>(kMargin + static_cast<double>(kFrameWidth) + kMargin),
                      static_cast<int>(kHeight));
  cairo_t* const cr = canvas.Cairo();
  const Plane plane(cr, kMargin, kTop, kFrameHeight);
  plane.DrawOutlines(overlay);
  Use(cr, kInk);
  std::ptrdiff_t lost = 0;
  for (const Roi& roi : overlay.rois) {
    if (!std::isfinite(roi.x_ref) || !std::isfinite(roi.y_ref)) {
      ++lost;
      continue;
    }
    cairo_new_path(cr);
    cairo_arc(cr, kMargin + roi.x_ref + 0.5, kTop + static_cast<double>(kFrameHeight) - roi.y_ref - 0.5, kDot, 0.0,
              2.0 * std::numbers::pi);
    cairo_fill(cr);
  }
  DrawBorder(cr, kMargin,
             "Regions on the frame, row 0 at the bottom, used ones blue; dots are reference points" + NotFinite(lost));
  return canvas.Png();
}

}  // namespace quen::workbench
