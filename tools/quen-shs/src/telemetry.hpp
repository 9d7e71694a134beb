#pragma once

#include <string>
#include <vector>

#include "tools/quen-shs/src/control_loop.hpp"

namespace quen_shs {

/// Writes the records of a loop as a binary table "telemetry", one row per frame, with the options in its header:
/// frame number, RMS of disturbance and residual, and the 52 modes of disturbance, correction and residual, all in
/// radians. Replaces the file.
/// @throws std::runtime_error  the file cannot be written
void WriteTelemetry(const std::string& path, const LoopOptions& options, const std::vector<FrameRecord>& records);

}  // namespace quen_shs
