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

/// A step for each bar, against its ends in milliseconds.
void DrawBars(cairo_t* cr, double left, const Durations& durations, const std::string& title) {
  std::vector<Durations::Bar> bars = durations.Histogram();
  if (!bars.empty() && std::isinf(bars.back().to)) bars.back().to = durations.Worst();
  Range times;
  Range counts;
  counts.Hold(1.0);
  for (const Durations::Bar& bar : bars) {
    times.Hold(bar.from / kMillisecond);
    times.Hold(bar.to / kMillisecond);
    counts.Hold(static_cast<double>(bar.count));
  }
  const Plot plot(cr, {left, kTop, kPlotWidth, kPlotHeight}, LogarithmicScale(times, kSmallest),
                  LinearScale(counts.highest));
  plot.DrawGrid(title);
  cairo_set_line_width(cr, 1.8);
  plot.DrawCurve(
      kCurves[0], 2 * bars.size(),
      [&](std::size_t k) {
        const Durations::Bar& bar = bars[k / 2];
        return (k % 2 == 0 ? std::max(bar.from / kMillisecond, kSmallest) : bar.to / kMillisecond);
      },
      [&](std::size_t k) { return static_cast<double>(bars[k / 2].count); });
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
