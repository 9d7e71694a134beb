#pragma once

#include <string>
#include <vector>

#include "workbench/sensor/overlay.hpp"

namespace quen::workbench {

/// Draws displacements as arrows over the detector, and beside it the light of each used sub-aperture, if known.
/// Returns a PNG file.
/// @param flux  of all sub-apertures; may be empty
/// @throws std::runtime_error  there is no memory for it
std::string DrawField(const Overlay& overlay, const std::vector<double>& flux);

/// Draws the regions of the sub-apertures, and their reference points. Returns a PNG file.
std::string DrawRegions(const Overlay& overlay);

}  // namespace quen::workbench
