#include "tools/quen-shs/src/scoring.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <functional>
#include <memory>

#include "tools/quen-shs/src/canvas.hpp"
#include "tools/quen-shs/src/engines.hpp"

namespace quen_shs {
namespace {

using quen::centroiders::ErrorBound;
using quen::centroiders::Score;
using quen::centroiders::ScoreOptions;

/// RMS error over both axes.
double Rms(const Score& score) { return std::hypot(score.x.rms, score.y.rms) / std::sqrt(2.0); }

// --- The picture

constexpr double kWidth = 1080.0;
constexpr double kHeight = 680.0;
constexpr double kLeft = 90.0;
constexpr double kTop = 40.0;
constexpr double kPlotWidth = 690.0;
constexpr double kPlotHeight = 570.0;
constexpr int kLowestDecade = -4;  // of pixels; the highest is 0

constexpr std::array<Colour, 7> kColours = {{{0.12, 0.47, 0.71, 1.0},
                                             {1.00, 0.50, 0.05, 1.0},
                                             {0.17, 0.63, 0.17, 1.0},
                                             {0.84, 0.15, 0.16, 1.0},
                                             {0.58, 0.40, 0.74, 1.0},
                                             {0.55, 0.34, 0.29, 1.0},
                                             {0.89, 0.47, 0.76, 1.0}}};

/// Positions of values along two logarithmic axes.
struct LogarithmicAxes {
  double first_noise;
  double last_noise;

  [[nodiscard]] double X(double noise) const {
    return kLeft + kPlotWidth * std::log(noise / first_noise) / std::log(last_noise / first_noise);
  }
  [[nodiscard]] static double Y(double rms) {
    return kTop + kPlotHeight * std::clamp(std::log10(rms) / kLowestDecade, 0.0, 1.0);
  }
};

void DrawGrid(cairo_t* cr, const LogarithmicAxes& axes, const std::vector<double>& noises) {
  cairo_set_line_width(cr, 1.0);
  for (int decade = kLowestDecade; decade <= 0; ++decade) {
    const double rms = std::pow(10.0, decade);
    Use(cr, kGrid);
    cairo_move_to(cr, kLeft, LogarithmicAxes::Y(rms));
    cairo_line_to(cr, kLeft + kPlotWidth, LogarithmicAxes::Y(rms));
    cairo_stroke(cr);
    Use(cr, kInk);
    Write(cr, kLeft - 60.0, LogarithmicAxes::Y(rms) + 5.0, Short(rms));
  }
  for (const double noise : noises) {
    Use(cr, kGrid);
    cairo_move_to(cr, axes.X(noise), kTop);
    cairo_line_to(cr, axes.X(noise), kTop + kPlotHeight);
    cairo_stroke(cr);
    Use(cr, kInk);
    Write(cr, axes.X(noise) - 8.0, kTop + kPlotHeight + 22.0, std::to_string(std::lround(noise)));
  }
  cairo_rectangle(cr, kLeft, kTop, kPlotWidth, kPlotHeight);
  cairo_stroke(cr);
}

/// A curve and its place in the legend.
void DrawCurve(cairo_t* cr, const LogarithmicAxes& axes, const std::vector<double>& noises,
               const std::function<double(std::size_t)>& rms, std::size_t place, const std::string& name) {
  cairo_new_path(cr);  // the text before has left a point
  for (std::size_t k = 0; k < noises.size(); ++k) {
    if (std::isfinite(rms(k))) cairo_line_to(cr, axes.X(noises[k]), LogarithmicAxes::Y(rms(k)));
  }
  cairo_stroke(cr);
  const double y = kTop + 20.0 + 26.0 * static_cast<double>(place);
  cairo_move_to(cr, kLeft + kPlotWidth + 20.0, y - 5.0);
  cairo_line_to(cr, kLeft + kPlotWidth + 50.0, y - 5.0);
  cairo_stroke(cr);
  Use(cr, kInk);
  Write(cr, kLeft + kPlotWidth + 58.0, y, name);
}

}  // namespace

std::vector<NamedScore> ScoreByName(quen::shssim::ShsSimulator& simulator, const std::vector<std::string>& engines,
                                    const ScoreOptions& options) {
  std::vector<std::unique_ptr<Engine>> made;
  std::vector<std::reference_wrapper<Engine>> references;
  references.reserve(engines.size());
  for (const std::string& text : engines) references.emplace_back(*made.emplace_back(MakeEngine(text)));
  const std::vector<Score> scores = ScoreEngines(simulator, references, options);
  std::vector<NamedScore> named;
  for (std::size_t k = 0; k < engines.size(); ++k) named.push_back({engines[k], scores[k]});
  return named;
}

void PrintScores(const std::vector<NamedScore>& scores, const ScoreOptions& options) {
  std::printf("noise %g, displacements within %g pixels, %zu frames, seed %u; least possible RMS %.3g pixels\n\n",
              options.noise, options.range, options.frames, options.seed, ErrorBound(options.noise));
  std::size_t width = std::string("engine").size();
  for (const NamedScore& named : scores) width = std::max(width, named.engine.size());
  const int column = static_cast<int>(width);
  std::printf(
      "| %-*s |   bias x |   bias y |   RMS x |   RMS y | RMS/least |   worst | gain x | gain y | flux error | "
      "failed | us/frame |\n",
      column, "engine");
  std::printf(
      "|-%s-|---------:|---------:|--------:|--------:|----------:|--------:|-------:|-------:|-----------:|"
      "-------:|---------:|\n",
      std::string(width, '-').c_str());
  for (const auto& [engine, score] : scores) {
    std::printf(
        "| %-*s | %+8.1e | %+8.1e | %7.1e | %7.1e | %9.3g | %7.1e | %6.4f | %6.4f | %+9.2f %% | %4.1f %% | %8.0f |\n",
        column, engine.c_str(), score.x.bias, score.y.bias, score.x.rms, score.y.rms,
        Rms(score) / ErrorBound(options.noise), score.worst, score.x.gain, score.y.gain, 100.0 * score.flux_bias,
        100.0 * score.failed, score.microseconds);
  }
}

void DrawErrors(const std::string& path, const ErrorCurves& curves, double range) {
  const Canvas canvas(static_cast<int>(kWidth), static_cast<int>(kHeight));
  cairo_t* const cr = canvas.Cairo();
  const LogarithmicAxes axes = {curves.noises.front(), curves.noises.back()};
  DrawGrid(cr, axes, curves.noises);
  Write(cr, kLeft, kTop - 14.0,
        "RMS error in pixels against the half-width of the noise (a spot's peak is 4096); displacements within " +
            Short(range) + " pixels");

  std::size_t place = 0;
  cairo_set_line_width(cr, 2.0);
  for (std::size_t engine = 0; engine < curves.scores.front().size(); ++engine) {
    const auto rms = [&](std::size_t k) { return Rms(curves.scores[k][engine].score); };
    Use(cr, kColours.at(engine % kColours.size()));
    DrawCurve(cr, axes, curves.noises, rms, place++, curves.scores.front()[engine].engine);
  }
  constexpr std::array<double, 2> kDashes = {7.0, 5.0};
  cairo_set_dash(cr, kDashes.data(), kDashes.size(), 0.0);
  DrawCurve(
      cr, axes, curves.noises, [&](std::size_t k) { return ErrorBound(curves.noises[k]); }, place,
      "least of linear, unbiased");
  canvas.Save(path);
}

}  // namespace quen_shs
