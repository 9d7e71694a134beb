#pragma once

#include <string>

#include "tools/quen-shs/src/engines/scoring.hpp"

namespace quen_shs {

/// RMS errors of the engines against the noise, and the least possible one. Writes a PNG file.
/// @throws std::runtime_error  the file cannot be written
void DrawErrors(const std::string& path, const ErrorCurves& curves);

}  // namespace quen_shs
