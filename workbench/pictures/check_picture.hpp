#pragma once

#include <string>

#include "workbench/check/finding.hpp"

namespace quen::workbench {

/// Draws what the findings are about, each as it stands and, beside it, as its corrections would have it: slopes of
/// modes as arrow maps, references off the middle of their regions, flags against how far spots are moved, CM * M2S.
/// With nothing wrong or doubtful, all of that as it stands. Returns a PNG file.
/// @param content  what was examined: 1214 × 52, 52 × 1214, 1089 regions
/// @throws std::runtime_error  there is no memory for it
std::string DrawFindings(const CalibrationContent& content, const Findings& findings, const std::string& title);

}  // namespace quen::workbench
