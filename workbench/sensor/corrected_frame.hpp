#pragma once

#include <vector>

#include "workbench/engines/pixel_maps.hpp"
#include "workbench/sensor/frame_file.hpp"

namespace quen::workbench {

/// The camera's maps for an engine that measures this frame: its pixels without a value are bad ones, too.
PixelMaps WithBlanks(PixelMaps maps, const Frame& frame);

/// A frame's pixels as an engine with these maps sees them, row-major: (value − dark) / flat counts; NaN where a pixel
/// does not count, because it is bad or has no value, or its response is below 0.001.
/// @param frame  of 840 × 816 pixels where there is a map
std::vector<double> CorrectedValues(const Frame& frame, const PixelMaps& maps);

}  // namespace quen::workbench
