#pragma once

#include <cstdint>
#include <vector>

#include "shssim/shs_simulator.hpp"

namespace quen::workbench {

/// A simulator that measures frames from elsewhere.
class Playback : public quen::shssim::ShsSimulator {
 public:
  /// Takes a frame, 840 × 816 pixels, for the next measurement.
  void Load(const std::vector<std::uint16_t>& pixels) { frame = pixels; }
};

}  // namespace quen::workbench
