#pragma once

#include <string>
#include <vector>

#include "workbench/loop/sweep.hpp"

namespace quen::workbench {

/// Draws residual and disturbance against the gain. Loops that diverged are left out of the curve. Returns a PNG file.
/// @param points  at least one
/// @throws std::runtime_error  there is no memory for it
std::string DrawSweep(const std::vector<SweepPoint>& points);

}  // namespace quen::workbench
