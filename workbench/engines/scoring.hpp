#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "centroiders/score.hpp"
#include "common/checks/limits.hpp"
#include "workbench/detector/description.hpp"
#include "workbench/engines/engines.hpp"

/// @file
/// Scores of engines that are given by name: at one noise or several, or on the frames of a detector, with one light or
/// several.

namespace quen::workbench {

/// Scores of one engine on frames of one kind.
struct NamedScore {
  std::string engine;  ///< as the argument gave it
  quen::centroiders::Score score;

  /// RMS error over both axes, pixels.
  [[nodiscard]] double Rms() const;
};

/// What a user may choose.
struct ScoringLimits {
  static constexpr common::Limits kFrames = {1.0, 100000.0};
};

/// What engines are scored on.
struct ScoreConditions {
  quen::centroiders::ScoreOptions options;
  std::shared_ptr<const DetectorDescription> detector = {};  ///< in place of the noise, if there is one

  /// The least RMS error along an axis that a linear unbiased estimator can have, pixels.
  [[nodiscard]] double LeastRms() const;
};

using Engines = std::vector<std::reference_wrapper<Engine>>;

/// Renders and measures frames with all engines. Their times are the only thing that differs from run to run.
std::vector<NamedScore> ScoreByName(quen::shssim::ShsSimulator& simulator, const std::vector<std::string>& engines,
                                    const ScoreConditions& conditions);
/// The same with these engines, which bear the names.
std::vector<NamedScore> ScoreByName(quen::shssim::ShsSimulator& simulator, const std::vector<std::string>& names,
                                    const Engines& engines, const ScoreConditions& conditions);

/// What errors are drawn against.
enum class Abscissa {
  kNoise,  ///< half-width of the simulator's noise, units of pixel values
  kLight,  ///< of a whole spot on a detector, photo-electrons
};

/// Scores at several noises or lights.
struct ErrorCurves {
  Abscissa abscissa = Abscissa::kNoise;
  double range = 0.0;  ///< of the displacements, pixels
  std::vector<double> places;
  std::vector<double> least_rms;                ///< at each place, as ScoreConditions::LeastRms
  std::vector<std::vector<NamedScore>> scores;  ///< at each place, the same engines
};

/// Where the curves are known: 10 noises from 1 to 1000, or 10 lights from 30 to 10⁶.
std::vector<double> CurvePlaces(Abscissa abscissa);

/// At several noises or, with a detector, at several lights.
ErrorCurves ScoreAlong(quen::shssim::ShsSimulator& simulator, const std::vector<std::string>& engines,
                       const ScoreConditions& conditions);
ErrorCurves ScoreAlong(quen::shssim::ShsSimulator& simulator, const std::vector<std::string>& names,
                       const Engines& engines, ScoreConditions conditions);

/// A table for the terminal, or for a document.
std::string ScoreTable(const std::vector<NamedScore>& scores, const ScoreConditions& conditions);

}  // namespace quen::workbench
