#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <vector>

#include "workbench/sensor/dimensions.hpp"

namespace quen::workbench {

inline constexpr double kSlopeLimit = 12.0;  ///< pixels: half a region

/// Displacements of all 1089 spots from their references, pixels, in the order of the sub-apertures.
struct Displacements {
  std::vector<double> x = std::vector<double>(kNumRois, 0.0);
  std::vector<double> y = std::vector<double>(kNumRois, 0.0);
};

/// Indices of the used sub-apertures, in their order, up to the 607th.
std::vector<std::size_t> UsedIndices(const std::vector<std::uint8_t>& flags);

/// Gives the used sub-apertures the displacements of a slope vector (y block, then x block); the others stay as they
/// are.
void SetUsedDisplacements(const Eigen::VectorXd& slopes, const std::vector<std::size_t>& used,
                          Displacements& displacements);

}  // namespace quen::workbench
