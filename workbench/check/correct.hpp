#pragma once

#include <optional>
#include <string>
#include <vector>

#include "workbench/check/finding.hpp"

/// @file
/// Putting a calibration right.

namespace quen::workbench {

/// The calibration as its findings say that it should be, if they leave no choice: each mistake has one correction, and
/// nothing wrong is found after all of them.
std::optional<CalibrationContent> Corrected(const CalibrationContent& content, const Findings& findings);

/// The three files of a calibration, in the order of kCalibrationFiles. Matrices keep the keywords of the files in use.
std::vector<std::string> CorrectedBytes(const CalibrationContent& content);

}  // namespace quen::workbench
