#pragma once

#include <string>

#include "workbench/sensor/matrices.hpp"
#include "workbench/sensor/overlay.hpp"

namespace quen::workbench {

/// Draws the slopes of a matrix's first modes as arrows over the pupil, and the size of every mode. Returns a PNG file.
/// @param slopes   a column for each mode: 607 y slopes, then 607 x slopes
/// @param overlay  the sub-apertures; their displacements do not count
/// @param unit     of the slopes, in words
/// @throws std::runtime_error  there is no memory for it
std::string DrawModes(const Matrix& slopes, const Overlay& overlay, const std::string& title, const std::string& unit);

}  // namespace quen::workbench
