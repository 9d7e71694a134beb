#pragma once

#include <Eigen/Dense>
#include <cstdint>
#include <random>

namespace quen_shs {

/// Phase modes of a turbulent atmosphere over time: Zernike modes 2 to 53, in radians, with Kolmogorov variances and a
/// first-order temporal correlation,
///
///     d(t + 1) = ρ · d(t) + √(1 − ρ²) · σ · g,    g standard normal,
///
/// stationary from the first frame on. Repeatable from its seed.
class Disturbance {
 public:
  /// @param strength     D/r0, pupil diameter over Fried parameter; 0 for no disturbance
  /// @param correlation  ρ, from one frame to the next
  Disturbance(double strength, double correlation, std::uint32_t seed);

  /// The modes of the current frame.
  [[nodiscard]] const Eigen::VectorXd& Modes() const { return modes_; }

  /// Goes on to the next frame.
  void Advance();

 private:
  Eigen::VectorXd Draw();

  std::mt19937_64 engine_;
  std::normal_distribution<double> normal_;
  double correlation_;
  Eigen::VectorXd sigma_;
  Eigen::VectorXd modes_;
};

}  // namespace quen_shs
