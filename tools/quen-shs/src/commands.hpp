#pragma once

#include <string>

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

}  // namespace quen_shs
