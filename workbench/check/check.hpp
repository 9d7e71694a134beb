#pragma once

#include <optional>
#include <string>

#include "workbench/check/finding.hpp"

/// @file
/// Whether a calibration can be trusted.

namespace quen::workbench {

struct Examination {
  Findings findings;
  std::optional<CalibrationContent> content;  ///< none if the library does not load it
};

/// Everything that can be found out about the calibration in a folder: its files first, each by itself, then what they
/// hold. Where the library does not load them, because one is missing, or damaged, what can be told of the others is
/// told, and then what cannot. The folder's own "data" may be given, too.
/// @throws std::runtime_error  all files are missing; or the system fails, which says nothing of the calibration
Examination CheckCalibration(const std::string& folder);

/// What the files hold, by itself.
Findings Examine(const CalibrationContent& content);

}  // namespace quen::workbench
