#pragma once

#include <string>
#include <vector>

#include "centroiders/score.hpp"
#include "tools/quen-shs/src/control_loop.hpp"

/// @file
/// The subcommands, without their arguments' syntax. Each prints its result on standard output and throws on failure.

namespace quen_shs {

/// Writes a synthetic calibration below `folder`.
void Calibrate(const std::string& folder, bool force);

/// Closes the loop on the calibration in `folder` and writes frame, slopes, telemetry and picture into `output`.
/// @throws std::runtime_error  no calibration, files cannot be written, or the loop did not converge (its files are
///                             written nevertheless)
void Loop(const std::string& folder, const std::string& output, const LoopOptions& options);

/// What to score and where to draw it.
struct ScoreCommand {
  std::vector<std::string> engines;  ///< as for MakeEngine
  quen::centroiders::ScoreOptions options;
  std::string picture;  ///< PNG file with the errors against the noise; none if empty
};

/// Prints the engines' scores on the calibration in `folder`.
/// @throws std::runtime_error  no calibration, or the picture cannot be written
void Score(const std::string& folder, const ScoreCommand& command);

}  // namespace quen_shs
