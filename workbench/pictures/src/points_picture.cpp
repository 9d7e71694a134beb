#include "workbench/pictures/points_picture.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "workbench/pictures/src/plot.hpp"

namespace quen::workbench {
namespace {

constexpr double kPanelWidth = 720.0;
constexpr double kPanelHeight = 420.0;
constexpr double kLeastPanelStep = 500.0;  // from one to the next

/// A linear scale that holds a range, with some air on both sides and ticks at round numbers.
Scale ScaleAround(const Range& range) {
  constexpr double kAir = 0.05;
  const double size = range.highest - range.lowest;
  const double width = size > 0.0 ? size : std::max(std::abs(range.highest), 1e-3);
  Scale scale = {range.lowest - kAir * width, range.highest + kAir * width, false, {}};
  const double step = LinearScale(scale.last - scale.first).ticks.at(1);
  const double first_tick = std::ceil(scale.first / step);
  const int ticks = 1 + static_cast<int>(std::floor(scale.last / step) - first_tick);
  for (int k = 0; k < ticks; ++k) scale.ticks.push_back((first_tick + k) * step + 0.0);  // no -0
  return scale;
}

/// Logarithmic where the values are of several magnitudes.
Scale ScaleOfValues(const Range& range) {
  constexpr double kWide = 20.0;
  return range.lowest > 0.0 && range.highest > kWide * range.lowest ? LogarithmicScale(range, range.lowest)
                                                                    : ScaleAround(range);
}

void DrawErrorBars(const Plot& plot, const Colour& colour, const std::vector<PointWithError>& points) {
  for (const auto& [x, y, error] : points) {
    if (!std::isfinite(y) || !std::isfinite(error)) continue;
    plot.DrawCurve(
        colour, 2, [x = x](std::size_t /*end*/) { return x; },
        [y = y, error = error](std::size_t end) { return end == 0 ? y - error : y + error; });
  }
}

std::string LegendOf(const CurveOfPoints& curve) {
  return curve.name + NotFinite(curve.points.size(), [&](std::size_t k) { return curve.points[k].y; });
}

}  // namespace

std::string DrawPoints(const std::vector<PanelOfCurves>& panels) {
  Range along;
  Range values;
  std::vector<std::string> names;
  std::size_t most_curves = 0;
  for (const PanelOfCurves& panel : panels) {
    most_curves = std::max(most_curves, panel.curves.size());
    for (const CurveOfPoints& curve : panel.curves) {
      names.push_back(LegendOf(curve));
      for (const auto& [x, y, error] : curve.points) {
        if (std::isfinite(y)) along.Hold(x);
        values.Hold(y);
        const bool has_error = std::isfinite(error);
        values.Hold(has_error && y > error ? y - error : y);
        values.Hold(has_error ? y + error : y);
      }
    }
  }
  if (!(values.lowest <= values.highest)) throw std::runtime_error("expected a finite value or more, found none");
  const Box first = {90.0, kTop, kPanelWidth, kPanelHeight};
  const double step = std::max(kLeastPanelStep, HeightOfLegend(most_curves) + kMargin);
  const Canvas canvas(WidthWithLegend(first, names),
                      static_cast<int>(step * static_cast<double>(panels.size()) + kMargin));
  cairo_t* const cr = canvas.Cairo();
  Box box = first;
  for (const PanelOfCurves& panel : panels) {
    const Plot plot(cr, box, ScaleAround(along), ScaleOfValues(values));
    plot.DrawGrid(panel.title);
    for (std::size_t k = 0; k < panel.curves.size(); ++k) {
      const std::vector<PointWithError>& points = panel.curves[k].points;
      const Colour& colour = kCurves.at(k % kCurves.size());
      const auto x = [&](std::size_t i) { return points[i].x; };
      const auto y = [&](std::size_t i) { return points[i].y; };
      cairo_set_line_width(cr, 1.8);
      plot.DrawCurve(colour, points.size(), x, y);
      plot.DrawDots(colour, points.size(), x, y);
      DrawErrorBars(plot, colour, points);
      plot.DrawLegend(colour, k, LegendOf(panel.curves[k]));
    }
    box.top += step;
  }
  return canvas.Png();
}

}  // namespace quen::workbench
