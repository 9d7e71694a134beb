#include "workbench/pictures/serve_picture.hpp"

#include <algorithm>
#include <cmath>
#include <vector>

#include "workbench/pictures/src/plot.hpp"

namespace quen::workbench {
namespace {

constexpr double kPlotWidth = 560.0;
constexpr double kPlotHeight = 420.0;
constexpr double kMillisecond = 1e-3;
constexpr double kSmallest = 1e-3;  // milliseconds: a logarithmic axis needs an end

/// A dot for each bar, in its middle.
void DrawBars(cairo_t* cr, double left, const Durations& durations, const std::string& title) {
  const std::vector<Durations::Bar> bars = durations.Histogram();
  const auto middle = [&](std::size_t k) {
    const double end = std::isinf(bars[k].to) ? durations.Worst() : bars[k].to;
    return std::sqrt(std::max(bars[k].from / kMillisecond, kSmallest) * end / kMillisecond);
  };
  const auto count = [&](std::size_t k) { return static_cast<double>(bars[k].count); };
  Range times;
  Range counts;
  counts.Hold(1.0);
  for (std::size_t k = 0; k < bars.size(); ++k) {
    times.Hold(middle(k));
    counts.Hold(count(k));
  }
  const Plot plot(cr, {left, kTop, kPlotWidth, kPlotHeight}, LogarithmicScale(times, kSmallest),
                  LinearScale(counts.highest));
  plot.DrawGrid(title);
  cairo_set_line_width(cr, 1.8);
  plot.DrawCurve(kCurves[0], bars.size(), middle, count);
  plot.DrawDots(kCurves[0], bars.size(), middle, count);
}

}  // namespace

std::string DrawServe(const Durations& lateness, const Durations& intervals) {
  constexpr double kLeft = 90.0;
  constexpr double kSecond = kLeft + kPlotWidth + 90.0;
  const Canvas canvas(static_cast<int>(kSecond + kPlotWidth + kMargin), static_cast<int>(kTop + kPlotHeight + kMargin));
  DrawBars(canvas.Cairo(), kLeft, lateness, "Publications against their lateness in milliseconds");
  DrawBars(canvas.Cairo(), kSecond, intervals, "Publications against the time since the one before in milliseconds");
  return canvas.Png();
}

}  // namespace quen::workbench
