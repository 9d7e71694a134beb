#pragma once

#include <string>
#include <vector>

#include "centroiders/score.hpp"

/// @file
/// Engines' scores as a table, and as a picture of their errors against the noise.

namespace quen_shs {

/// Scores of one engine at one noise.
struct NamedScore {
  std::string engine;  ///< as the argument gave it
  quen::centroiders::Score score;
};

/// Renders and measures frames with all engines. Their times are the only thing that differs from run to run.
std::vector<NamedScore> ScoreByName(quen::shssim::ShsSimulator& simulator, const std::vector<std::string>& engines,
                                    const quen::centroiders::ScoreOptions& options);

/// A table for the terminal, or for a document.
void PrintScores(const std::vector<NamedScore>& scores, const quen::centroiders::ScoreOptions& options);

/// Scores at several levels of noise.
struct ErrorCurves {
  std::vector<double> noises;
  std::vector<std::vector<NamedScore>> scores;  ///< per noise
};

/// RMS errors of x and y against the noise, 1 to 1000, and the bound. Writes a PNG file.
/// @throws std::runtime_error  the file cannot be written
void DrawErrors(const std::string& path, const ErrorCurves& curves, double range);

}  // namespace quen_shs
