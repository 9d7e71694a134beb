#pragma once

#include <Eigen/Core>
#include <cstddef>

#include "workbench/sensor/matrices.hpp"

namespace quen::workbench {

/// Puts 0 in the place of both slopes of a spot of which one is not finite: the engine has not found it.
/// @param slopes  those in y, then as many in x
/// @return        how many spots these are
std::size_t LeaveOutLost(Eigen::VectorXd& slopes);

/// The controller's half of a loop: from the last slopes of a simulator to the next correction,
///
///     c ← (1 − leak) · c + gain · CM · s.
///
/// A spot whose slopes s are not finite, which the engine has not found, has slopes of 0 in that product: it says
/// nothing of the modes. All memory is allocated when the object is made.
class Integrator {
 public:
  /// @param simulator  whose slopes and control matrix are used, as long as this object lives
  Integrator(const quen::shssim::ShsSimulator& simulator, double gain, double leak);

  /// @param correction  c, 52 modes
  /// @param next        of the same size; may be the same one
  /// @return  how many spots say nothing
  std::size_t Integrate(const Eigen::VectorXd& correction, Eigen::VectorXd& next);

  /// The slopes that were used last, 1214 pixels.
  [[nodiscard]] const Eigen::VectorXd& Slopes() const { return slopes_; }

 private:
  const quen::shssim::ShsSimulator& simulator_;
  Eigen::Map<const Matrix> cm_;
  double gain_;
  double leak_;
  Eigen::VectorXd slopes_;
  Eigen::VectorXd measured_;
};

}  // namespace quen::workbench
