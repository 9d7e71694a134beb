#pragma once

#include <span>
#include <string>

#include "shssim/shs_simulator.hpp"
#include "workbench/check/finding.hpp"
#include "workbench/fits/input_file.hpp"

/// @file
/// Whether a calibration can be trusted.

namespace quen::workbench {

/// Everything that can be found out about the calibration in a folder: its files first, then, if the library loads
/// them, what they hold.
/// @throws std::runtime_error  a file is missing, or the system does not let it be opened
Findings CheckCalibration(const std::string& folder);

/// Its parts: its files, and what the library has loaded of them.
/// @param calibration  its files, in the order of kCalibrationFiles
Findings CheckFiles(std::span<const InputFile> calibration);
Findings CheckRegions(const quen::shssim::ShsSimulator& simulator);
Findings CheckMatrices(const quen::shssim::ShsSimulator& simulator);

}  // namespace quen::workbench
