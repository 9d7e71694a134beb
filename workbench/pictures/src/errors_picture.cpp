#include "workbench/pictures/errors_picture.hpp"

#include <array>

#include "workbench/pictures/src/plot.hpp"

namespace quen::workbench {
namespace {

/// With a tick at each noise, or at round numbers where they are many.
Scale NoiseScale(const std::vector<double>& noises) {
  constexpr std::size_t kMostTicks = 20;
  if (noises.size() > kMostTicks) return LogarithmicScale({noises.front(), noises.back()}, noises.front());
  return {noises.front(), noises.back(), true, noises};
}

}  // namespace

std::string DrawErrors(const ErrorCurves& curves) {
  const Canvas canvas(1080, 680);
  cairo_t* const cr = canvas.Cairo();
  const Plot plot(cr, {90.0, 40.0, 690.0, 570.0}, NoiseScale(curves.noises),
                  {1e-4, 1.0, true, {1e-4, 1e-3, 1e-2, 1e-1, 1.0}});
  plot.DrawGrid(
      "RMS error in pixels against the half-width of the noise (a spot's peak is 4096); displacements within " +
      Short(curves.range) + " pixels");

  std::size_t place = 0;
  cairo_set_line_width(cr, 2.0);
  const auto noise = [&](std::size_t k) { return curves.noises[k]; };
  for (std::size_t engine = 0; engine < curves.scores.front().size(); ++engine) {
    const Colour& colour = kCurves.at(engine % kCurves.size());
    const auto rms = [&](std::size_t k) { return curves.scores[k][engine].Rms(); };
    plot.DrawCurve(colour, curves.noises.size(), noise, rms);
    plot.DrawLegend(colour, place++, curves.scores.front()[engine].engine + NotFinite(curves.noises.size(), rms));
  }
  constexpr std::array<double, 2> kDashes = {7.0, 5.0};
  cairo_set_dash(cr, kDashes.data(), kDashes.size(), 0.0);
  plot.DrawCurve(kInk, curves.noises.size(), noise,
                 [&](std::size_t k) { return quen::centroiders::ErrorBound(curves.noises[k]); });
  plot.DrawLegend(kInk, place, "least of linear, unbiased");
  return canvas.Png();
}

}  // namespace quen::workbench
