#pragma once

#include <optional>
#include <span>
#include <string>

#include "workbench/check/finding.hpp"
#include "workbench/fits/input_file.hpp"

/// @file
/// Whether a calibration can be trusted.

namespace quen::workbench {

struct Examination {
  Findings findings;
  std::optional<CalibrationContent> content;  ///< none if the library does not load it
};

/// Everything that can be found out about the calibration in a folder: its files first, then, if the library loads
/// them, what they hold. The folder's own "data" may be given, too.
/// @throws std::runtime_error  a file is missing, or the system does not let it be opened
Examination CheckCalibration(const std::string& folder);

/// What the files hold, by itself.
Findings Examine(const CalibrationContent& content);

/// Its parts: the files, in the order of kCalibrationFiles, and what the library has loaded of them.
Findings CheckFiles(std::span<const InputFile> calibration);
Findings CheckRegions(const CalibrationContent& content);
Findings CheckMatrices(const CalibrationContent& content);

}  // namespace quen::workbench
