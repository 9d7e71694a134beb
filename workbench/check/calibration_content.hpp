#pragma once

#include <cstdint>
#include <vector>

#include "shssim/shs_simulator.hpp"
#include "workbench/sensor/dimensions.hpp"
#include "workbench/sensor/matrices.hpp"

namespace quen::workbench {

/// What the three files of a calibration hold.
struct CalibrationContent {
  Matrix m2s;                      ///< 1214 × 52
  Matrix cm;                       ///< 52 × 1214
  std::vector<Roi> rois;           ///< 1089
  std::vector<std::uint8_t> used;  ///< usage flags
};

CalibrationContent ContentOf(const quen::shssim::ShsSimulator& simulator);

}  // namespace quen::workbench
