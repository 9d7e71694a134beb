#include "workbench/pictures/loop_picture.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "workbench/pictures/frame_picture.hpp"
#include "workbench/pictures/src/plane.hpp"
#include "workbench/pictures/src/plot.hpp"
#include "workbench/sensor/dimensions.hpp"

namespace quen::workbench {
namespace {

constexpr double kPlotWidth = 640.0;
constexpr double kSmallest = 1e-6;  // rad: a logarithmic axis needs an end

constexpr Colour kDisturbance = {0.55, 0.55, 0.60, 1.0};
constexpr Colour kResidual = {0.10, 0.40, 0.75, 1.0};

using Vector = Eigen::VectorXd FrameRecord::*;

/// A value of a record's vector, by the number of the frame or of the mode.
using RmsOfFrame = std::function<double(std::size_t, Vector)>;

/// Names of the two curves above a plot, in their colours.
void WriteNames(cairo_t* cr, const Box& box, const std::string& title, std::size_t count, const RmsOfFrame& rms) {
  Use(cr, kInk);
  Write(cr, box.left, box.top - kTitleAbove, title + "  ");
  Use(cr, kDisturbance);
  WriteOn(cr,
          "disturbance" + NotFinite(count, [&](std::size_t k) { return rms(k, &FrameRecord::disturbance); }) + "  ");
  Use(cr, kResidual);
  WriteOn(cr, "residual" + NotFinite(count, [&](std::size_t k) { return rms(k, &FrameRecord::residual); }));
}

/// A scale that holds both curves.
Scale ScaleFor(std::size_t count, const RmsOfFrame& rms) {
  Range range;
  for (std::size_t k = 0; k < count; ++k) {
    for (const Vector vector : {&FrameRecord::disturbance, &FrameRecord::residual}) range.Hold(rms(k, vector));
  }
  return LogarithmicScale(range, kSmallest);
}

/// Disturbance and residual, `count` values each, against their number.
void DrawBoth(cairo_t* cr, const Box& box, std::size_t count, const std::string& title, const RmsOfFrame& rms) {
  const Plot plot(cr, box, LinearScale(static_cast<double>(count)), ScaleFor(count, rms));
  plot.DrawGrid("");
  cairo_set_line_width(cr, 1.6);
  const auto number = [](std::size_t k) { return static_cast<double>(k); };
  plot.DrawCurve(kDisturbance, count, number, [&](std::size_t k) { return rms(k, &FrameRecord::disturbance); });
  plot.DrawCurve(kResidual, count, number, [&](std::size_t k) { return rms(k, &FrameRecord::residual); });
  WriteNames(cr, box, title, count, rms);
}

void DrawHistory(cairo_t* cr, const Box& box, const std::vector<FrameRecord>& records) {
  DrawBoth(cr, box, records.size(), "Phase RMS in radians against the frame number:",
           [&](std::size_t frame, Vector vector) { return (records[frame].*vector).stableNorm(); });
}

/// Root mean square of a mode over the frames where it is finite; NaN if it is in none.
double ModeRms(const std::vector<FrameRecord>& records, Vector vector, Eigen::Index mode) {
  Eigen::VectorXd values(static_cast<Eigen::Index>(records.size()));
  Eigen::Index count = 0;
  for (const FrameRecord& record : records) {
    const double value = (record.*vector)(mode);
    if (std::isfinite(value)) values(count++) = value;
  }
  if (count == 0) return std::numeric_limits<double>::quiet_NaN();
  return values.head(count).stableNorm() / std::sqrt(static_cast<double>(count));
}

Eigen::VectorXd ModeRms(const std::vector<FrameRecord>& records, Vector vector) {
  return Eigen::VectorXd::NullaryExpr((records.front().*vector).size(),
                                      [&](Eigen::Index mode) { return ModeRms(records, vector, mode); });
}

void DrawModes(cairo_t* cr, const Box& box, const std::vector<FrameRecord>& records) {
  const Eigen::VectorXd disturbance = ModeRms(records, &FrameRecord::disturbance);
  const Eigen::VectorXd residual = ModeRms(records, &FrameRecord::residual);
  DrawBoth(cr, box, static_cast<std::size_t>(residual.size()),
           "RMS over all frames against the mode, from 0:", [&](std::size_t mode, Vector vector) {
             return (vector == &FrameRecord::residual ? residual : disturbance)(static_cast<Eigen::Index>(mode));
           });
}

}  // namespace

std::string DrawLoop(const Frame& frame, const quen::shssim::ShsSimulator& simulator,
                     const std::vector<FrameRecord>& records) {
  constexpr double kPlotLeft = 960.0;
  const Canvas canvas(static_cast<int>(kPlotLeft + kPlotWidth + kMargin), 900);
  cairo_t* const cr = canvas.Cairo();
  const Overlay overlay = OverlayOf(simulator);
  const Plane plane(cr, kMargin, kTop, kFrameHeight);
  plane.DrawPixels(frame, StretchOfDrawn(frame));
  plane.DrawOutlines(overlay);
  plane.DrawArrows(overlay, ArrowMagnification(overlay));
  Use(cr, kInk);
  Write(cr, kMargin, kTop - kTitleAbove,
        "Last frame, row 0 at the bottom; measured displacements, " + ArrowLegend(overlay));
  DrawHistory(cr, {kPlotLeft, kTop, kPlotWidth, static_cast<double>(kFrameHeight)}, records);
  return canvas.Png();
}

std::string DrawTelemetry(const std::vector<FrameRecord>& records) {
  constexpr double kLeft = 80.0;
  constexpr double kHeight = 480.0;
  constexpr double kSecond = kLeft + kPlotWidth + 90.0;
  const Canvas canvas(static_cast<int>(kSecond + kPlotWidth + kMargin), static_cast<int>(kTop + kHeight + kMargin));
  DrawHistory(canvas.Cairo(), {kLeft, kTop, kPlotWidth, kHeight}, records);
  DrawModes(canvas.Cairo(), {kSecond, kTop, kPlotWidth, kHeight}, records);
  return canvas.Png();
}

}  // namespace quen::workbench
