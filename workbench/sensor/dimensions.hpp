#pragma once

#include "basesim/base_simulator.hpp"
#include "quen_image_processing/roi/roi.hpp"
#include "shssim/shs_simulator.hpp"

/// @file
/// The sensor's dimensions and regions by their names alone, as the workbench calls them from here upward.

namespace quen::workbench {

using basesim::kFrameHeight;
using basesim::kFrameWidth;
using basesim::kNumModes;
using basesim::kNumRois;
using basesim::kNumSlopes;
using image_processing::Roi;
using shssim::kNumRoisUsed;

}  // namespace quen::workbench
