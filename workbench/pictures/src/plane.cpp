#include "workbench/pictures/src/plane.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "common/statistics/quantile.hpp"

namespace quen::workbench {
namespace {

constexpr Colour kUsedOutline = {0.25, 0.60, 0.90, 0.55};
constexpr Colour kUnusedOutline = {0.60, 0.60, 0.60, 0.18};
constexpr Colour kArrow = {1.00, 0.55, 0.10, 1.0};
constexpr Colour kCutArrow = {0.90, 0.00, 0.10, 1.0};
constexpr double kRounding = 1e-9;  // of an arrow that is as long as the longest

}  // namespace

double LongLength(std::vector<double> lengths, double part) {
  if (lengths.empty()) return 0.0;
  const double length = common::Quantile(lengths, part);
  return length > 0.0 ? length : std::ranges::max(lengths);
}

void Plane::DrawPixels(const Frame& frame, const Stretch& stretch) const {
  constexpr std::uint32_t kGrey = 0x010101;
  const Image image(frame.width, frame.height);
  for (std::size_t y = 0; y < frame.height; ++y) {
    std::uint32_t* const line = image.Row(frame.height - 1 - y);
    for (std::size_t x = 0; x < frame.width; ++x) {
      const double shade = stretch.Shade(frame.Value(frame.pixels[x + frame.width * y]));
      line[x] = kGrey * static_cast<std::uint32_t>(255.0 * shade);
    }
  }
  cairo_set_source_surface(cr_, image.Filled(), left_, bottom_ - static_cast<double>(frame.height));
  cairo_paint(cr_);
}

void Plane::DrawOutlines(const Overlay& overlay) const {
  cairo_set_line_width(cr_, 1.0);
  for (std::size_t i = 0; i < overlay.rois.size(); ++i) {
    const Roi& roi = overlay.rois[i];
    Use(cr_, overlay.IsUsed(i) ? kUsedOutline : kUnusedOutline);
    cairo_rectangle(cr_, left_ + roi.x_low + 0.5, bottom_ - roi.y_up + 0.5, roi.width - 1.0, roi.height - 1.0);
    cairo_stroke(cr_);
  }
}

void Plane::DrawArrows(const Overlay& overlay, double magnification) const {
  if (!overlay.displacements) return;
  cairo_set_line_width(cr_, 1.4);
  for (std::size_t i = 0; i < overlay.rois.size(); ++i) {
    if (!overlay.IsUsed(i) || !overlay.HasArrow(i)) continue;
    Arrow(overlay.rois[i].x_ref, overlay.rois[i].y_ref, magnification * overlay.displacements->x[i],
          magnification * overlay.displacements->y[i]);
  }
}

void Plane::Arrow(double x, double y, double dx, double dy) const {
  constexpr double kHead = 3.0;
  constexpr double kHeadAngle = 2.6;
  const double length = std::hypot(dx, dy);
  if (length == 0.0) return Ring(x, y);
  const double angle = std::atan2(dy, dx);
  const double shown = std::min(length, kLongestArrow);
  Use(cr_, length > kLongestArrow * (1.0 + kRounding) ? kCutArrow : kArrow);
  const double tip_x = x + shown * std::cos(angle);
  const double tip_y = y + shown * std::sin(angle);
  cairo_move_to(cr_, X(x), Y(y));
  cairo_line_to(cr_, X(tip_x), Y(tip_y));
  for (const double side : {-kHeadAngle, kHeadAngle}) {
    cairo_move_to(cr_, X(tip_x), Y(tip_y));
    cairo_line_to(cr_, X(tip_x + kHead * std::cos(angle + side)), Y(tip_y + kHead * std::sin(angle + side)));
  }
  cairo_stroke(cr_);
}

void Plane::Ring(double x, double y) const {
  constexpr double kRadius = 2.0;
  Use(cr_, kArrow);
  cairo_new_path(cr_);
  cairo_arc(cr_, X(x), Y(y), kRadius, 0.0, 2.0 * std::numbers::pi);
  cairo_stroke(cr_);
}

void Plane::Fill(const Roi& roi, const Colour& colour) const {
  Use(cr_, colour);
  cairo_rectangle(cr_, left_ + roi.x_low, bottom_ - roi.y_up, roi.width, roi.height);
  cairo_fill(cr_);
}

}  // namespace quen::workbench
