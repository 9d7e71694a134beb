#include "workbench/pictures/errors_picture.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "shssim/spot.hpp"
#include "workbench/pictures/src/plot.hpp"

namespace quen::workbench {
namespace {

/// With a tick at each place, or at round numbers where they are many.
Scale PlaceScale(const std::vector<double>& places) {
  constexpr std::size_t kMostTicks = 20;
  if (places.size() > kMostTicks) return LogarithmicScale({places.front(), places.back()}, places.front());
  return {places.front(), places.back(), true, places};
}

std::string Title(const ErrorCurves& curves) {
  const bool along_light = curves.abscissa == Abscissa::kLight;
  return std::string("RMS error in pixels against the ") +
         (along_light ? "light of a spot in photo-electrons"
                      : fmt::format("half-width of the noise (a spot's peak is {:g})", quen::shssim::kSpotPeak)) +
         "; displacements within " + Short(curves.range) + " pixels";
}

}  // namespace

std::string DrawErrors(const ErrorCurves& curves) {
  std::vector<std::string> names;
  for (std::size_t engine = 0; engine < curves.scores.front().size(); ++engine) {
    const auto rms = [&](std::size_t k) { return curves.scores[k][engine].Rms(); };
    names.push_back(curves.scores.front()[engine].engine + NotFinite(curves.places.size(), rms));
  }
  names.emplace_back("least of linear, unbiased");
  constexpr Box kPlot = {90.0, 40.0, 690.0, 570.0};
  const Canvas canvas(std::max(1080, WidthWithLegend(kPlot, names)), 680);
  cairo_t* const cr = canvas.Cairo();
  const Plot plot(cr, kPlot, PlaceScale(curves.places), {1e-4, 1.0, true, {1e-4, 1e-3, 1e-2, 1e-1, 1.0}});
  plot.DrawGrid(Title(curves));

  cairo_set_line_width(cr, 2.0);
  const auto along = [&](std::size_t k) { return curves.places[k]; };
  for (std::size_t engine = 0; engine + 1 < names.size(); ++engine) {
    const Colour& colour = kCurves.at(engine % kCurves.size());
    plot.DrawCurve(colour, curves.places.size(), along, [&](std::size_t k) { return curves.scores[k][engine].Rms(); });
    plot.DrawLegend(colour, engine, names[engine]);
  }
  constexpr std::array<double, 2> kDashes = {7.0, 5.0};
  cairo_set_dash(cr, kDashes.data(), kDashes.size(), 0.0);
  plot.DrawCurve(kInk, curves.places.size(), along, [&](std::size_t k) { return curves.least_rms[k]; });
  plot.DrawLegend(kInk, names.size() - 1, names.back());
  return canvas.Png();
}

}  // namespace quen::workbench
