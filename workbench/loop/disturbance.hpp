#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <random>
#include <string>

namespace quen::workbench {

inline constexpr double kCorrelation = 0.9995;  ///< from one frame to the next

/// Phase modes of a turbulent atmosphere over time, in radians, with the variances of Kolmogorov turbulence and a
/// first-order temporal correlation,
///
///     d(t + 1) = ρ · d(t) + √(1 − ρ²) · σ · g,    g standard normal,
///
/// stationary from the first frame on. Repeatable from its seed.
class Disturbance {
 public:
  /// @param variances    of the modes for D/r0 = 1, rad²
  /// @param d_over_r0    D/r0, pupil diameter over Fried parameter; 0 for no disturbance
  /// @param correlation  ρ, from one frame to the next
  Disturbance(const Eigen::VectorXd& variances, double d_over_r0, double correlation, std::uint32_t seed);

  /// The modes of the current frame.
  [[nodiscard]] const Eigen::VectorXd& Modes() const { return modes_; }

  /// Goes on to the next frame. Allocates nothing.
  void Advance();

 private:
  const Eigen::VectorXd& Draw();

  std::mt19937_64 generator_;
  std::normal_distribution<double> normal_;
  double correlation_;
  Eigen::VectorXd sigma_;
  Eigen::VectorXd drawn_;
  Eigen::VectorXd modes_;
};

/// Modes over time: a row per frame, a column per mode, radians.
using Series = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

/// The largest magnitude of a mode, radians, that is not taken for an error in its file. Up to it the loop's sums of
/// squares stay finite.
inline constexpr double kLargestMode = 1e100;

/// @param source  where the series is from, for the message
/// @throws std::runtime_error  a mode is larger than that
void RequireModerate(const Series& series, const std::string& source);

/// The first frames of a disturbance.
Series TurbulentSeries(int frames, const Eigen::VectorXd& variances, double d_over_r0, std::uint32_t seed);

}  // namespace quen::workbench
