#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <optional>

#include "workbench/loop/disturbance.hpp"

namespace quen::workbench {

/// What becomes of a disturbance whose file ends.
enum class AtEnd { kHold, kRepeat, kStop };

/// ρ from one frame to the next, of a disturbance whose correlation over a time t is exp(−t · wind / diameter): that of
/// a pupil which is as far in other turbulence after the time that the wind takes across it.
/// @param wind      metres a second
/// @param diameter  of the pupil, metres
double CorrelationOfWind(double wind, double diameter, double rate);

/// The same where no wind is told: as much in a second as kCorrelation per frame is at 1000 frames a second.
double CorrelationAtRate(double rate);

/// The disturbance of frame after frame, without end: turbulence, or what a file has.
class DisturbanceSource {
 public:
  explicit DisturbanceSource(Disturbance turbulence) : turbulence_(std::move(turbulence)) {}
  /// @param series  at least one row
  DisturbanceSource(Series series, AtEnd at_end) : series_(std::move(series)), at_end_(at_end) {}

  /// Of the current frame, radians. Allocates nothing.
  [[nodiscard]] Eigen::Map<const Eigen::VectorXd> Modes() const;
  /// Whether there is no current frame: the file has ended, and so does the run.
  [[nodiscard]] bool IsOver() const { return is_over_; }
  /// Goes on to the next frame. Allocates nothing.
  void Advance();

 private:
  std::optional<Disturbance> turbulence_ = {};
  Series series_ = {};
  AtEnd at_end_ = AtEnd::kHold;
  Eigen::Index row_ = 0;
  bool is_over_ = false;
};

}  // namespace quen::workbench
