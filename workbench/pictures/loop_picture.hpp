#pragma once

#include <string>
#include <vector>

#include "shssim/shs_simulator.hpp"
#include "workbench/loop/control_loop.hpp"
#include "workbench/sensor/frame_file.hpp"

namespace quen::workbench {

/// Draws the last frame of a loop (row 0 at the bottom) with the outlines of the sub-apertures and the measured
/// displacements, and beside it disturbance and residual against time. Returns a PNG file.
/// @param frame  the camera's last, of 840 × 816 pixels
/// @throws std::runtime_error  there is no memory for it
std::string DrawLoop(const Frame& frame, const quen::shssim::ShsSimulator& simulator,
                     const std::vector<FrameRecord>& records);

/// Draws disturbance and residual against time, and mode by mode. Returns a PNG file.
/// @param records  at least one
/// @throws std::runtime_error  there is no memory for it
std::string DrawTelemetry(const std::vector<FrameRecord>& records);

}  // namespace quen::workbench
