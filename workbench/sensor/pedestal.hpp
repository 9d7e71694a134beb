#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "workbench/sensor/camera.hpp"
#include "workbench/sensor/dimensions.hpp"

namespace quen::workbench {

/// How bright a frame is where no spot is.
struct Pedestal {
  double counts = 0.0;  ///< median of the regions' borders: of the medians of their outermost pixels
  double share = 0.0;   ///< what it adds to the regions, over the spots' own light; infinite if there is none

  /// Whether an engine that takes it for light would lose some hundredths of its gain.
  [[nodiscard]] bool IsNoticeable() const;
};

/// Looks at the regions that are used. Those that are empty or reach out of the frame do not count.
/// @param values  of the frame's pixels, as CorrectedValues gives them; those that are NaN do not count
/// @param width   of the frame, pixels
Pedestal PedestalOf(const std::vector<double>& values, std::size_t width, const std::vector<Roi>& rois,
                    const std::vector<std::uint8_t>& used);

/// The same of a frame that the camera draws for it with a detector, its spots where they belong, as engines correct
/// it; none without a detector. Call Camera::Use again afterwards: its first
/// frame is this one.
std::optional<Pedestal> PedestalOfDetector(Camera& camera, const Exposure& exposure);

}  // namespace quen::workbench
