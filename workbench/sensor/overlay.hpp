#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "workbench/sensor/dimensions.hpp"
#include "workbench/sensor/displacements.hpp"

namespace quen::workbench {

/// Sub-apertures to be drawn on a frame or a plane, with arrows for displacements if there are any.
struct Overlay {
  std::vector<Roi> rois;
  std::vector<std::uint8_t> used;
  std::optional<Displacements> displacements;

  /// Whether sub-aperture `i` is used; all are where there are no flags.
  [[nodiscard]] bool IsUsed(std::size_t i) const { return used.empty() || (i < used.size() && used[i] != 0); }

  /// Whether its displacement and its reference are finite, where there are displacements.
  [[nodiscard]] bool HasArrow(std::size_t i) const;
};

/// What a simulator has measured.
Overlay OverlayOf(const quen::shssim::ShsSimulator& simulator);

}  // namespace quen::workbench
