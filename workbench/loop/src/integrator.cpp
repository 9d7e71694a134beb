#include "workbench/loop/integrator.hpp"

#include <cmath>

#include "workbench/sensor/dimensions.hpp"

namespace quen::workbench {

std::size_t LeaveOutLost(Eigen::VectorXd& slopes) {
  const Eigen::Index half = slopes.size() / 2;
  std::size_t lost = 0;
  for (Eigen::Index spot = 0; spot < half; ++spot) {
    if (std::isfinite(slopes(spot)) && std::isfinite(slopes(half + spot))) continue;
    slopes(spot) = slopes(half + spot) = 0.0;
    ++lost;
  }
  return lost;
}

Integrator::Integrator(const quen::shssim::ShsSimulator& simulator, double gain, double leak)
    : simulator_(simulator),
      cm_(CmOf(simulator)),
      gain_(gain),
      leak_(leak),
      slopes_(Eigen::VectorXd::Zero(kNumSlopes)),
      measured_(Eigen::VectorXd::Zero(kNumModes)) {}

std::size_t Integrator::Integrate(const Eigen::VectorXd& correction, Eigen::VectorXd& next) {
  slopes_ = SlopesOf(simulator_);
  const std::size_t lost = LeaveOutLost(slopes_);
  Multiply(cm_, slopes_, measured_);
  next = (1.0 - leak_) * correction + gain_ * measured_;
  return lost;
}

}  // namespace quen::workbench
