#include "workbench/pictures/sweep_picture.hpp"

#include <algorithm>
#include <cmath>

#include "workbench/pictures/src/plot.hpp"

namespace quen::workbench {

std::string DrawSweep(const std::vector<SweepPoint>& points) {
  constexpr double kSmallest = 1e-6;  // rad: a logarithmic axis needs an end
  Range gains = {0.0, 0.1};
  Range values;
  values.Hold(points.front().disturbance);
  for (const SweepPoint& point : points) {
    gains.Hold(point.gain);
    values.Hold(point.residual);
  }
  const auto is_lost = [](const SweepPoint& point) {
    return !std::isfinite(point.gain) || !std::isfinite(point.disturbance) || std::isnan(point.residual);
  };
  const Canvas canvas(1060, 620);
  cairo_t* const cr = canvas.Cairo();
  const Plot plot(cr, {80.0, kTop, 720.0, 520.0}, LinearScale(gains.highest), LogarithmicScale(values, kSmallest));
  plot.DrawGrid("Phase RMS in radians, second half of each run, against the gain; gaps: diverged" +
                NotFinite(std::ranges::count_if(points, is_lost)));
  cairo_set_line_width(cr, 1.8);
  const auto gain = [&](std::size_t k) { return points[k].gain; };
  const auto residual = [&](std::size_t k) { return points[k].residual; };
  plot.DrawCurve(kCurves[1], points.size(), gain, [&](std::size_t k) {
    return points[k].HasDiverged() ? points[k].residual : points[k].disturbance;  // of a shorter run, if it has
  });
  plot.DrawCurve(kCurves[0], points.size(), gain, residual);
  plot.DrawDots(kCurves[0], points.size(), gain, residual);
  plot.DrawLegend(kCurves[1], 0, "disturbance");
  plot.DrawLegend(kCurves[0], 1, "residual");
  return canvas.Png();
}

}  // namespace quen::workbench
