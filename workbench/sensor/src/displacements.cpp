#include "workbench/sensor/displacements.hpp"

namespace quen::workbench {

std::vector<std::size_t> UsedIndices(const std::vector<std::uint8_t>& flags) {
  std::vector<std::size_t> used;
  used.reserve(kNumRoisUsed);
  for (std::size_t i = 0; i < flags.size() && i < kNumRois && used.size() < kNumRoisUsed; ++i) {
    if (flags[i] != 0) used.push_back(i);
  }
  return used;
}

void SetUsedDisplacements(const Eigen::VectorXd& slopes, const std::vector<std::size_t>& used,
                          Displacements& displacements) {
  for (std::size_t k = 0; k < used.size(); ++k) {
    displacements.y[used[k]] = slopes(static_cast<Eigen::Index>(k));
    displacements.x[used[k]] = slopes(static_cast<Eigen::Index>(kNumRoisUsed + k));
  }
}

}  // namespace quen::workbench
