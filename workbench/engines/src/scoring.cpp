#include "workbench/engines/scoring.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>

#include "workbench/engines/engines.hpp"

namespace quen::workbench {

using quen::centroiders::ErrorBound;
using quen::centroiders::ScoreOptions;

double NamedScore::Rms() const { return std::hypot(score.x.rms, score.y.rms) / std::sqrt(2.0); }

std::vector<NamedScore> ScoreByName(quen::shssim::ShsSimulator& simulator, const std::vector<std::string>& engines,
                                    const ScoreOptions& options) {
  std::vector<std::unique_ptr<Engine>> made;
  std::vector<std::reference_wrapper<Engine>> references;
  references.reserve(engines.size());
  for (const std::string& text : engines) references.emplace_back(*made.emplace_back(MakeEngine(text)));
  const auto scores = ScoreEngines(simulator, references, options);
  std::vector<NamedScore> named;
  for (std::size_t k = 0; k < engines.size(); ++k) named.push_back({engines[k], scores[k]});
  return named;
}

std::vector<double> CurveNoises() { return {1, 2, 5, 10, 20, 50, 100, 200, 500, 1000}; }

ErrorCurves ScoreAtNoises(quen::shssim::ShsSimulator& simulator, const std::vector<std::string>& engines,
                          ScoreOptions options) {
  ErrorCurves curves = {options.range, CurveNoises(), {}};
  for (const double noise : curves.noises) {
    options.noise = noise;
    curves.scores.push_back(ScoreByName(simulator, engines, options));
  }
  return curves;
}

std::string ScoreTable(const std::vector<NamedScore>& scores, const ScoreOptions& options) {
  std::size_t width = std::string("engine").size();
  for (const NamedScore& named : scores) width = std::max(width, named.engine.size());
  std::string text = fmt::format(
      "noise {:g}, displacements within {:g} pixels, {} frames, seed {}; least possible RMS {:.3g} pixels\n\n"
      "| {:<{}} |   bias x |   bias y |   RMS x |   RMS y | RMS/least |   worst | gain x | gain y | flux error | "
      "failed | us/frame |\n"
      "|-{:-<{}}-|---------:|---------:|--------:|--------:|----------:|--------:|-------:|-------:|-----------:|"
      "-------:|---------:|\n",
      options.noise, options.range, options.frames, options.seed, ErrorBound(options.noise), "engine", width, "",
      width);
  for (const NamedScore& named : scores) {
    const auto& score = named.score;
    text += fmt::format(
        "| {:<{}} | {:+8.1e} | {:+8.1e} | {:7.1e} | {:7.1e} | {:9.3g} | {:7.1e} | {:6.4f} | {:6.4f} | {:+9.2f} % | "
        "{:4.1f} % | {:8.0f} |\n",
        named.engine, width, score.x.bias, score.y.bias, score.x.rms, score.y.rms,
        named.Rms() / ErrorBound(options.noise), score.worst, score.x.gain, score.y.gain, 100.0 * score.flux_bias,
        100.0 * score.failed, score.microseconds);
  }
  return text;
}

}  // namespace quen::workbench
