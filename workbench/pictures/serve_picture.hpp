#pragma once

#include <string>

#include "workbench/live/durations.hpp"

namespace quen::workbench {

/// Draws how late frames were published, and what lay between two of them, as the bytes of a PNG file.
/// @throws std::runtime_error  as Canvas
std::string DrawServe(const Durations& lateness, const Durations& intervals);

}  // namespace quen::workbench
