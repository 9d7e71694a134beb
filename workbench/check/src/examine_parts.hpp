#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "workbench/check/finding.hpp"

namespace quen::workbench {

/// Regions and their usage flags.
struct Regions {
  std::vector<Roi> rois;
  std::vector<std::uint8_t> used;
};

/// What could be read of a calibration that the library does not load.
struct ReadableParts {
  std::optional<Matrix> m2s;
  std::optional<Matrix> cm;
  std::optional<Regions> regions;
};

/// What can be told of these parts, and, last, what cannot for want of the others.
Findings ExamineParts(const ReadableParts& parts);

}  // namespace quen::workbench
