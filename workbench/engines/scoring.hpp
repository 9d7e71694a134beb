#pragma once

#include <string>
#include <vector>

#include "centroiders/score.hpp"

/// @file
/// Scores of engines that are given by name, at one noise or several.

namespace quen::workbench {

/// Scores of one engine at one noise.
struct NamedScore {
  std::string engine;  ///< as the argument gave it
  quen::centroiders::Score score;

  /// RMS error over both axes, pixels.
  [[nodiscard]] double Rms() const;
};

/// Renders and measures frames with all engines. Their times are the only thing that differs from run to run.
std::vector<NamedScore> ScoreByName(quen::shssim::ShsSimulator& simulator, const std::vector<std::string>& engines,
                                    const quen::centroiders::ScoreOptions& options);

/// Scores at several levels of noise.
struct ErrorCurves {
  double range = 0.0;  ///< of the displacements, pixels
  std::vector<double> noises;
  std::vector<std::vector<NamedScore>> scores;  ///< per noise, the same engines at each
};

/// Levels of noise for the curves, 1 to 1000.
std::vector<double> CurveNoises();

ErrorCurves ScoreAtNoises(quen::shssim::ShsSimulator& simulator, const std::vector<std::string>& engines,
                          quen::centroiders::ScoreOptions options);

/// A table for the terminal, or for a document.
std::string ScoreTable(const std::vector<NamedScore>& scores, const quen::centroiders::ScoreOptions& options);

}  // namespace quen::workbench
