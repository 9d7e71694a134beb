#include "tools/quen-shs/src/picture.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "tools/quen-shs/src/canvas.hpp"

namespace quen_shs {
namespace {

using quen::basesim::kFrameHeight;
using quen::basesim::kFrameWidth;
using quen::image_processing::Roi;

constexpr double kWidth = 1640.0;
constexpr double kHeight = 900.0;
constexpr double kMargin = 40.0;
constexpr double kFrameLeft = kMargin;
constexpr double kFrameTop = 44.0;
constexpr double kPlotLeft = 960.0;
constexpr double kPlotTop = kFrameTop;
constexpr double kPlotWidth = kWidth - kPlotLeft - kMargin;
constexpr double kPlotHeight = kFrameHeight;
constexpr double kTypicalArrow = 5.0;   // pixels of the frame
constexpr double kLongestArrow = 11.0;  // stays inside the region

constexpr Colour kUsedOutline = {0.25, 0.60, 0.90, 0.55};
constexpr Colour kUnusedOutline = {0.60, 0.60, 0.60, 0.18};
constexpr Colour kArrow = {1.00, 0.55, 0.10, 1.0};
constexpr Colour kDisturbance = {0.55, 0.55, 0.60, 1.0};
constexpr Colour kResidual = {0.10, 0.40, 0.75, 1.0};

// --- The frame -----------------------------------------------------------------------------------------------------

/// From the frame's pixel coordinates, row 0 at the bottom and pixel centres at integers, to the picture's.
double PictureX(double column) { return kFrameLeft + column + 0.5; }
double PictureY(double row) { return kFrameTop + kFrameHeight - (row + 0.5); }

/// The frame as a grey image, square-root stretch, dark pixels below zero black.
void DrawPixels(cairo_t* cr, const std::vector<std::uint16_t>& frame) {
  const Surface image(cairo_image_surface_create(CAIRO_FORMAT_RGB24, kFrameWidth, kFrameHeight),
                      &cairo_surface_destroy);
  cairo_surface_flush(image.get());
  unsigned char* const data = cairo_image_surface_get_data(image.get());
  const auto stride = static_cast<std::size_t>(cairo_image_surface_get_stride(image.get()));
  for (std::size_t y = 0; y < kFrameHeight; ++y) {
    unsigned char* const line = data + (kFrameHeight - 1 - y) * stride;
    for (std::size_t x = 0; x < kFrameWidth; ++x) {
      const double light = static_cast<std::int16_t>(frame[x + kFrameWidth * y]);
      const double grey = 255.0 * std::sqrt(std::clamp(light / quen::shssim::kSpotPeak, 0.0, 1.0));
      std::fill_n(line + 4 * x, 4, static_cast<unsigned char>(grey));
    }
  }
  cairo_surface_mark_dirty(image.get());
  cairo_set_source_surface(cr, image.get(), kFrameLeft, kFrameTop);
  cairo_paint(cr);
}

void Outline(cairo_t* cr, const Roi& roi, bool used) {
  Use(cr, used ? kUsedOutline : kUnusedOutline);
  cairo_set_line_width(cr, 1.0);
  cairo_rectangle(cr, kFrameLeft + roi.x_low + 0.5, kFrameTop + kFrameHeight - roi.y_up + 0.5, roi.width - 1.0,
                  roi.height - 1.0);
  cairo_stroke(cr);
}

/// Magnification that makes the root mean square displacement of the used sub-apertures a typical arrow.
double Magnification(const quen::shssim::ShsSimulator& simulator) {
  double sum = 0.0;
  for (const double slope : simulator.Slopes()) sum += slope * slope;
  const double rms = std::sqrt(sum / static_cast<double>(simulator.XSlopesUsed().size()));
  return rms > 0.0 ? kTypicalArrow / rms : 1.0;
}

/// An arrow on the frame, cut to the longest that stays inside a region.
void DrawArrow(cairo_t* cr, double x, double y, double dx, double dy) {
  constexpr double kHead = 3.0;
  constexpr double kHeadAngle = 2.6;
  const double length = std::hypot(dx, dy);
  const double angle = std::atan2(dy, dx);
  const double shown = std::min(length, kLongestArrow);
  const double tip_x = x + shown * std::cos(angle);
  const double tip_y = y + shown * std::sin(angle);
  cairo_move_to(cr, PictureX(x), PictureY(y));
  cairo_line_to(cr, PictureX(tip_x), PictureY(tip_y));
  for (const double side : {-kHeadAngle, kHeadAngle}) {
    cairo_move_to(cr, PictureX(tip_x), PictureY(tip_y));
    cairo_line_to(cr, PictureX(tip_x + kHead * std::cos(angle + side)),
                  PictureY(tip_y + kHead * std::sin(angle + side)));
  }
  cairo_stroke(cr);
}

void DrawFrame(cairo_t* cr, const quen::shssim::ShsSimulator& simulator) {
  DrawPixels(cr, simulator.Frame());
  const double magnification = Magnification(simulator);
  const std::vector<std::uint8_t>& used = simulator.RoisUsed();
  for (std::size_t i = 0; i < simulator.Rois().size(); ++i) {
    const Roi& roi = simulator.Rois()[i];
    const bool is_used = i < used.size() && used[i] != 0;
    Outline(cr, roi, is_used);
    if (!is_used) continue;
    Use(cr, kArrow);
    cairo_set_line_width(cr, 1.4);
    DrawArrow(cr, roi.x_ref, roi.y_ref, magnification * simulator.XSlopes()[i], magnification * simulator.YSlopes()[i]);
  }
  Use(cr, kInk);
  Write(cr, kFrameLeft, kFrameTop - 14.0,
        "Last frame, row 0 at the bottom; measured displacements, " + Short(magnification) + " times enlarged");
}

// --- The residual against time -------------------------------------------------------------------------------------

/// Maps frame number and RMS (logarithmic) to the plot.
class Axes {
 public:
  Axes(std::size_t frames, double lowest, double highest)
      : frames_(static_cast<double>(frames)), bottom_(std::log10(lowest) - 0.1), top_(std::log10(highest) + 0.1) {}

  [[nodiscard]] double X(double frame) const { return kPlotLeft + kPlotWidth * frame / frames_; }
  [[nodiscard]] double Y(double rms) const {
    const double share = (std::log10(rms) - bottom_) / (top_ - bottom_);
    return kPlotTop + kPlotHeight * (1.0 - std::clamp(share, 0.0, 1.0));
  }

  void Draw(cairo_t* cr) const {
    cairo_set_line_width(cr, 1.0);
    for (int decade = static_cast<int>(std::floor(bottom_)); decade <= top_; ++decade) {
      for (const double digit : {1.0, 2.0, 5.0}) DrawLevel(cr, digit * std::pow(10.0, decade));
    }
    for (const double share : {0.0, 0.25, 0.5, 0.75, 1.0}) {
      Use(cr, kInk);
      Write(cr, kPlotLeft + kPlotWidth * share - 10.0, kPlotTop + kPlotHeight + 20.0,
            std::to_string(std::lround(share * frames_)));
    }
    cairo_rectangle(cr, kPlotLeft, kPlotTop, kPlotWidth, kPlotHeight);
    cairo_stroke(cr);
  }

 private:
  void DrawLevel(cairo_t* cr, double rms) const {
    if (std::log10(rms) < bottom_ || std::log10(rms) > top_) return;
    Use(cr, kGrid);
    cairo_move_to(cr, kPlotLeft, Y(rms));
    cairo_line_to(cr, kPlotLeft + kPlotWidth, Y(rms));
    cairo_stroke(cr);
    Use(cr, kInk);
    Write(cr, kPlotLeft - 46.0, Y(rms) + 5.0, Short(rms));
  }

  double frames_;
  double bottom_;  // decades
  double top_;
};

void DrawCurve(cairo_t* cr, const Axes& axes, const Colour& colour, const std::vector<FrameRecord>& records,
               Eigen::VectorXd FrameRecord::*vector) {
  Use(cr, colour);
  cairo_set_line_width(cr, 1.6);
  for (std::size_t frame = 0; frame < records.size(); ++frame) {
    cairo_line_to(cr, axes.X(static_cast<double>(frame)), axes.Y((records[frame].*vector).norm()));
  }
  cairo_stroke(cr);
}

void DrawHistory(cairo_t* cr, const std::vector<FrameRecord>& records) {
  constexpr double kSmallest = 1e-6;  // rad: a logarithmic axis needs an end
  double lowest = records.front().disturbance.norm();
  double highest = lowest;
  for (const FrameRecord& record : records) {
    for (const double rms : {record.disturbance.norm(), record.residual.norm()}) {
      lowest = std::min(lowest, rms);
      highest = std::max(highest, rms);
    }
  }
  const Axes axes(records.size(), std::max(lowest, kSmallest), std::max(highest, kSmallest));
  axes.Draw(cr);
  DrawCurve(cr, axes, kDisturbance, records, &FrameRecord::disturbance);
  DrawCurve(cr, axes, kResidual, records, &FrameRecord::residual);
  cairo_move_to(cr, kPlotLeft, kPlotTop - 14.0);
  for (const auto& [colour, text] : {std::pair(kInk, "Phase RMS in radians against the frame number:  "),
                                     std::pair(kDisturbance, "disturbance  "), std::pair(kResidual, "residual")}) {
    Use(cr, colour);
    cairo_show_text(cr, text);
  }
}

}  // namespace

void DrawLoop(const std::string& path, const quen::shssim::ShsSimulator& simulator,
              const std::vector<FrameRecord>& records) {
  const Canvas canvas(static_cast<int>(kWidth), static_cast<int>(kHeight));
  DrawFrame(canvas.Cairo(), simulator);
  DrawHistory(canvas.Cairo(), records);
  canvas.Save(path);
}

}  // namespace quen_shs
