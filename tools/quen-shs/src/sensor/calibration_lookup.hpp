#pragma once

#include <string>

#include "shssim/shs_simulator.hpp"

namespace quen_shs {

/// Makes every simulator that is constructed from now on load its calibration from this folder, wherever CFGPATH and
/// INTROOT point. To be called before the first one, from one thread.
/// @throws std::runtime_error  a file of the calibration is missing there
void UseCalibration(const std::string& folder);

/// @throws std::runtime_error  ComputeSlopes would end the process, for there are too few usage flags
void RequireFlags(const quen::shssim::ShsSimulator& simulator, const std::string& folder);

/// A simulator on the calibration in this folder, fit to measure.
/// @throws what UseCalibration, RequireFlags and the simulator throw
template <typename Simulator = quen::shssim::ShsSimulator>
Simulator LoadSimulator(const std::string& folder) {
  UseCalibration(folder);
  Simulator simulator;
  RequireFlags(simulator, folder);
  return simulator;
}

}  // namespace quen_shs
