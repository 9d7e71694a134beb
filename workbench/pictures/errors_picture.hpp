#pragma once

#include <string>

#include "workbench/engines/scoring.hpp"

namespace quen::workbench {

/// Draws the RMS errors of the engines, and the least possible error, against the noise or the light. Returns a PNG
/// file.
/// @throws std::runtime_error  there is no memory for it
std::string DrawErrors(const ErrorCurves& curves);

}  // namespace quen::workbench
