#pragma once

#include <cstdint>
#include <vector>

#include "workbench/sensor/dimensions.hpp"
#include "workbench/sensor/frame_file.hpp"

namespace quen::workbench {

/// Pixels that have reached what must be the camera's ceiling.
struct Saturation {
  double counts = 0.0;    ///< the ceiling
  std::size_t spots = 0;  ///< that have such a pixel in their regions; 0 if none has, and there is no ceiling to see
};

/// Looks at the brightest pixels of the regions that are used. They are at a ceiling if
/// - they have the most that a converter of 8 to 16 bits gives, and are two or more, or
/// - five of them are in one region, a hundred counts or more above its dimmest pixel: no spot has so flat a top.
/// @param values  of the frame's pixels, as CorrectedValues gives them; pixels whose value is NaN do not count
Saturation SaturationOf(const Frame& frame, const std::vector<double>& values, const std::vector<Roi>& rois,
                        const std::vector<std::uint8_t>& used);

}  // namespace quen::workbench
