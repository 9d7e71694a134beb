#include "workbench/pictures/transfer_picture.hpp"

#include <cmath>

#include "workbench/pictures/src/plot.hpp"

namespace quen::workbench {

std::string DrawTransfer(const PhotonTransfer& transfer, const std::string& name) {
  constexpr double kSmallest = 1e-3;  // counts: a logarithmic axis needs an end
  const std::vector<TransferPoint>& points = transfer.points;
  Range means;
  Range variances;
  for (const TransferPoint& point : points) {
    means.Hold(point.mean);
    variances.Hold(point.variance);
  }
  const Canvas canvas(1120, 640);
  cairo_t* const cr = canvas.Cairo();
  const Plot plot(cr, {90.0, kTop, 720.0, 530.0}, LogarithmicScale(means, kSmallest),
                  LogarithmicScale(variances, kSmallest));
  plot.DrawGrid("Photon transfer of " + name + ": variance in counts\u00b2 against the mean in counts above dark");
  cairo_set_line_width(cr, 1.8);
  const auto mean = [&](std::size_t k) { return points[k].mean; };
  const auto variance = [&](std::size_t k) { return points[k].variance; };
  const double last = points.back().mean;
  const double excess = transfer.excess;
  plot.DrawCurve(kCurves[1], points.size(), mean, [&](std::size_t k) {
    return points[k].mean < last ? transfer.dark.variance + excess * transfer.gain * points[k].mean
                                 : std::numeric_limits<double>::quiet_NaN();
  });
  plot.DrawCurve(kCurves[0], points.size(), mean, variance);
  plot.DrawDots(kCurves[0], points.size(), mean, variance);
  plot.DrawLegend(kCurves[0], 0, "pairs of flat frames");
  plot.DrawLegend(kCurves[1], 1, "dark variance + gain \u00b7 mean" + std::string(excess > 1.0 ? " \u00b7 2" : ""));
  return canvas.Png();
}

}  // namespace quen::workbench
