#pragma once

#include <optional>
#include <string>
#include <vector>

#include "workbench/pictures/stretch.hpp"
#include "workbench/sensor/frame_file.hpp"
#include "workbench/sensor/overlay.hpp"

namespace quen::workbench {

/// Magnification with which nineteen of twenty displacements of the used sub-apertures are no longer than the longest
/// arrow; longer ones are cut to it, and red. 1 if there is nothing to show.
double ArrowMagnification(const Overlay& overlay);

/// How many pixels the longest arrow is in words, or that there is none, and how many used sub-apertures have no arrow.
std::string ArrowLegend(const Overlay& overlay);

/// Draws a frame, and sub-apertures on it if there are any; says how many pixels have no value. Returns a PNG file.
/// @throws std::runtime_error  there is no memory for it
std::string DrawFrame(const Frame& frame, const Stretch& stretch, const std::optional<Overlay>& overlay,
                      const std::string& title);

/// Draws a map of pixels by zscale; from its lowest value to its highest where zscale finds no range.
/// What is not finite is black. Returns a PNG file.
/// @param map    a number for each of the pixels, row by row
/// @param width  pixels in a row
/// @throws std::runtime_error  there is no memory for it
std::string DrawMap(const std::vector<double>& map, std::size_t width, const std::string& name);

}  // namespace quen::workbench
