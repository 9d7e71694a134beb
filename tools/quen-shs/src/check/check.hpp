#pragma once

#include <string>

#include "shssim/shs_simulator.hpp"
#include "tools/quen-shs/src/check/finding.hpp"

/// @file
/// Whether a calibration can be trusted.

namespace quen_shs {

/// Everything that can be found out about the calibration in a folder: its files first, then, if the library loads them,
/// what they hold.
/// @throws std::runtime_error  a file is missing
Findings CheckCalibration(const std::string& folder);

/// Its parts, on what the library has loaded.
Findings CheckFiles(const std::string& folder);
Findings CheckRegions(const quen::shssim::ShsSimulator& simulator);
Findings CheckMatrices(const quen::shssim::ShsSimulator& simulator);

}  // namespace quen_shs
