#pragma once

#include <string>

#include "tools/quen-shs/src/engines/scoring.hpp"

namespace quen_shs {

/// RMS errors of the engines against the noise, and the least possible one. Returns a PNG file.
/// @throws std::runtime_error  there is no memory for it
std::string DrawErrors(const ErrorCurves& curves);

}  // namespace quen_shs
