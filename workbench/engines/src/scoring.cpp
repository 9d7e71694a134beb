#include "workbench/engines/scoring.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <memory>

namespace quen::workbench {
namespace {

class MadeEngines {
 public:
  MadeEngines(const std::vector<std::string>& texts, const std::shared_ptr<const DetectorDescription>& detector) {
    const EngineInputs inputs = InputsFor(detector);
    for (const std::string& text : texts) references_.emplace_back(*made_.emplace_back(MakeEngine(text, inputs)));
  }

  [[nodiscard]] const Engines& References() const { return references_; }

 private:
  std::vector<std::unique_ptr<Engine>> made_;
  Engines references_;
};

}  // namespace

using quen::centroiders::ErrorBound;
using quen::centroiders::ScoreOptions;

double NamedScore::Rms() const { return std::hypot(score.x.rms, score.y.rms) / std::sqrt(2.0); }

double ScoreConditions::LeastRms() const { return detector ? ErrorBound(detector->config) : ErrorBound(options.noise); }

std::vector<NamedScore> ScoreByName(quen::shssim::ShsSimulator& simulator, const std::vector<std::string>& engines,
                                    const ScoreConditions& conditions) {
  const MadeEngines made(engines, conditions.detector);
  return ScoreByName(simulator, engines, made.References(), conditions);
}

std::vector<NamedScore> ScoreByName(quen::shssim::ShsSimulator& simulator, const std::vector<std::string>& names,
                                    const Engines& engines, const ScoreConditions& conditions) {
  const auto scores = conditions.detector
                          ? ScoreEngines(simulator, engines, conditions.options, conditions.detector->config)
                          : ScoreEngines(simulator, engines, conditions.options);
  std::vector<NamedScore> named;
  for (std::size_t k = 0; k < names.size(); ++k) named.push_back({names[k], scores[k]});
  return named;
}

std::vector<double> CurvePlaces(Abscissa abscissa) {
  if (abscissa == Abscissa::kLight) return {30, 100, 300, 1000, 3000, 1e4, 3e4, 1e5, 3e5, 1e6};
  return {1, 2, 5, 10, 20, 50, 100, 200, 500, 1000};
}

ErrorCurves ScoreAlong(quen::shssim::ShsSimulator& simulator, const std::vector<std::string>& engines,
                       const ScoreConditions& conditions) {
  // The maps of a detector, which engines may know, are the same with any light.
  const MadeEngines made(engines, conditions.detector);
  return ScoreAlong(simulator, engines, made.References(), conditions);
}

ErrorCurves ScoreAlong(quen::shssim::ShsSimulator& simulator, const std::vector<std::string>& names,
                       const Engines& engines, ScoreConditions conditions) {
  ErrorCurves curves;
  curves.abscissa = conditions.detector ? Abscissa::kLight : Abscissa::kNoise;
  curves.range = conditions.options.range;
  for (const double place : CurvePlaces(curves.abscissa)) {
    if (conditions.detector) {
      auto lit = std::make_shared<DetectorDescription>();
      lit->config = conditions.detector->config;
      lit->engines_know_maps = conditions.detector->engines_know_maps;
      lit->config.electrons_per_unit = place / quen::shssim::kSpotFlux;
      conditions.detector = lit;
    } else {
      conditions.options.noise = place;
    }
    curves.places.push_back(place);
    curves.least_rms.push_back(conditions.LeastRms());
    curves.scores.push_back(ScoreByName(simulator, names, engines, conditions));
  }
  return curves;
}

std::string ScoreTable(const std::vector<NamedScore>& scores, const ScoreConditions& conditions) {
  const ScoreOptions& options = conditions.options;
  std::size_t width = std::string("engine").size();
  for (const NamedScore& named : scores) width = std::max(width, named.engine.size());
  std::string text = fmt::format(
      "{}, displacements within {:g} pixels, {} frames, seed {}; least possible RMS {:.3g} pixels\n\n"
      "| {:<{}} |   bias x |   bias y |   RMS x |   RMS y | RMS/least |   worst | gain x | gain y |  flux error | "
      " failed | us/frame |\n"
      "|-{:-<{}}-|---------:|---------:|--------:|--------:|----------:|--------:|-------:|-------:|------------:|"
      "--------:|---------:|\n",
      conditions.detector ? InWords(*conditions.detector) : fmt::format("noise {:g}", options.noise), options.range,
      options.frames, options.seed, conditions.LeastRms(), "engine", width, "", width);
  for (const NamedScore& named : scores) {
    const auto& score = named.score;
    text += fmt::format(
        "| {:<{}} | {:+8.1e} | {:+8.1e} | {:7.1e} | {:7.1e} | {:9.3g} | {:7.1e} | {:6.4f} | {:6.4f} | {:+9.2f} % | "
        "{:5.1f} % | {:8.0f} |\n",
        named.engine, width, score.x.bias, score.y.bias, score.x.rms, score.y.rms, named.Rms() / conditions.LeastRms(),
        score.worst, score.x.gain, score.y.gain, 100.0 * score.flux_bias, 100.0 * score.failed, score.microseconds);
  }
  return text;
}

}  // namespace quen::workbench
