#pragma once

#include <string>

#include "workbench/engines/scoring.hpp"

namespace quen::workbench {

/// Draws the RMS errors of the engines against the noise, and the least possible error. Returns a PNG file.
/// @throws std::runtime_error  there is no memory for it
std::string DrawErrors(const ErrorCurves& curves);

}  // namespace quen::workbench
