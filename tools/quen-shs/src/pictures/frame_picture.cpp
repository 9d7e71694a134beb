#include "tools/quen-shs/src/pictures/frame_picture.hpp"

#include <algorithm>
#include <cmath>

namespace quen_shs {
namespace {

using quen::image_processing::Roi;

constexpr double kTypicalArrow = 5.0;   // pixels of the frame
constexpr double kLongestArrow = 11.0;  // stays inside the region

constexpr Colour kUsedOutline = {0.25, 0.60, 0.90, 0.55};
constexpr Colour kUnusedOutline = {0.60, 0.60, 0.60, 0.18};
constexpr Colour kArrow = {1.00, 0.55, 0.10, 1.0};

}  // namespace

Overlay OverlayOf(const quen::shssim::ShsSimulator& simulator) {
  return {simulator.Rois(), simulator.RoisUsed(), Displacements{simulator.XSlopes(), simulator.YSlopes()}};
}

double ArrowMagnification(const Overlay& overlay) {
  double sum = 0.0;
  double count = 0.0;
  for (std::size_t i = 0; i < overlay.rois.size() && overlay.displacements; ++i) {
    const double length = std::hypot(overlay.displacements->x[i], overlay.displacements->y[i]);
    if (!overlay.IsUsed(i) || !std::isfinite(length)) continue;
    sum += length * length;
    count += 1.0;
  }
  return sum > 0.0 ? kTypicalArrow / std::sqrt(sum / count) : 1.0;
}

void Plane::DrawPixels(const Frame& frame, const Stretch& stretch) const {
  const Surface image(
      cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(frame.width), static_cast<int>(frame.height)),
      &cairo_surface_destroy);
  cairo_surface_flush(image.get());
  unsigned char* const data = cairo_image_surface_get_data(image.get());
  const auto stride = static_cast<std::size_t>(cairo_image_surface_get_stride(image.get()));
  for (std::size_t y = 0; y < frame.height; ++y) {
    unsigned char* const line = data + (frame.height - 1 - y) * stride;
    for (std::size_t x = 0; x < frame.width; ++x) {
      const double shade = stretch.Shade(static_cast<std::int16_t>(frame.pixels[x + frame.width * y]));
      std::fill_n(line + 4 * x, 4, static_cast<unsigned char>(255.0 * shade));
    }
  }
  cairo_surface_mark_dirty(image.get());
  cairo_set_source_surface(cr_, image.get(), left_, bottom_ - static_cast<double>(frame.height));
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
  Use(cr_, kArrow);
  cairo_set_line_width(cr_, 1.4);
  for (std::size_t i = 0; i < overlay.rois.size(); ++i) {
    const double dx = magnification * overlay.displacements->x[i];
    const double dy = magnification * overlay.displacements->y[i];
    if (overlay.IsUsed(i) && std::isfinite(dx) && std::isfinite(dy)) {
      Arrow(overlay.rois[i].x_ref, overlay.rois[i].y_ref, dx, dy);
    }
  }
}

void Plane::Arrow(double x, double y, double dx, double dy) const {
  constexpr double kHead = 3.0;
  constexpr double kHeadAngle = 2.6;
  const double angle = std::atan2(dy, dx);
  const double shown = std::min(std::hypot(dx, dy), kLongestArrow);
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

void Plane::Fill(const Roi& roi, const Colour& colour) const {
  Use(cr_, colour);
  cairo_rectangle(cr_, left_ + roi.x_low, bottom_ - roi.y_up, roi.width, roi.height);
  cairo_fill(cr_);
}

std::string DrawFrame(const Frame& frame, const Stretch& stretch, const std::optional<Overlay>& overlay,
                      const std::string& title) {
  const Canvas canvas(static_cast<int>(static_cast<double>(frame.width) + 2.0 * kMargin),
                      static_cast<int>(static_cast<double>(frame.height) + kTop + kMargin));
  const Plane plane(canvas.Cairo(), kMargin, kTop, frame.height);
  plane.DrawPixels(frame, stretch);
  if (overlay) {
    plane.DrawOutlines(*overlay);
    plane.DrawArrows(*overlay, ArrowMagnification(*overlay));
  }
  Use(canvas.Cairo(), kInk);
  Write(canvas.Cairo(), kMargin, kTop - kTitleAbove, title);
  return canvas.Png();
}

}  // namespace quen_shs
