#pragma once

#include <string>

namespace quen_shs {

/// Makes every simulator that is constructed from now on load its calibration from this folder, wherever CFGPATH and
/// INTROOT point. To be called before the first one, from one thread.
/// @throws std::runtime_error  a file of the calibration is missing there
void UseCalibration(const std::string& folder);

}  // namespace quen_shs
