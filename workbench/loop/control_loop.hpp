#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "common/checks/limits.hpp"
#include "workbench/engines/engines.hpp"
#include "workbench/loop/disturbance.hpp"
#include "workbench/sensor/camera.hpp"

/// @file
/// A modal integrator loop around the simulated sensor.

namespace quen::workbench {

/// What a user may choose.
struct LoopLimits {
  static constexpr common::Limits kFrames = {10.0, 100000.0};  ///< of turbulence
  static constexpr common::Limits kDOverR0 = {0.0, 1000.0};    ///< its strength
  static constexpr common::Limits kGain = {0.0, 2.0};
  static constexpr common::Limits kLeak = {0.0, 1.0};
  static constexpr common::Limits kDelay = {1.0, 9.0};
};

/// Numbers are within LoopLimits.
struct LoopOptions {
  double gain = 0.5;
  double leak = 0.0;  ///< share of the correction that is forgotten from frame to frame
  int delay = 1;      ///< frames from a measurement to the first frame that its correction acts on
  Exposure exposure = {};
  std::string engine = kDefaultEngine;  ///< that measures, as for MakeEngine
};

/// What one frame leaves behind. Modes in radians; an RMS is the root of the sum of their squares.
struct FrameRecord {
  Eigen::VectorXd disturbance;
  Eigen::VectorXd correction;
  Eigen::VectorXd residual;  ///< disturbance − correction
};

/// What a loop leaves behind: a record per frame, up to the one in which it diverged.
struct LoopRun {
  std::vector<FrameRecord> records;
  std::size_t lost_spots = 0;  ///< in all frames: those for which the engine gave no finite displacement
  bool has_diverged = false;
};

/// A loop has diverged when its residual exceeds this many times the largest disturbance so far, or this many radians,
/// whichever is more.
inline constexpr double kDivergence = 10.0;

/// Closes the loop, frame by frame:
///
///     residual e = d − c  →  displacements M2S · e  →  frame  →  slopes s  →  c ← (1 − leak) · c + gain · CM · s,
///
/// where the new correction c acts `delay` frames later. A spot whose slopes are not finite, which the engine has not
/// found, has slopes of 0 in that product: it says nothing of the modes. Equal arguments give equal records. Stops
/// where the loop diverges. The camera then holds the last frame and its measurement.
///
/// @param disturbance  d, a row per frame
/// @param after_frame  called after each frame
LoopRun RunLoop(Camera& camera, const Series& disturbance, const LoopOptions& options,
                const std::function<void()>& after_frame);
/// The same with this engine in place of the one that the options name.
LoopRun RunLoop(Camera& camera, const Series& disturbance, const LoopOptions& options, Engine& engine,
                const std::function<void()>& after_frame);

/// The same, taken apart: RunLoop does Record, Displace, Draw, Measure and Correct for each frame. All memory is
/// allocated when the object is made.
class ControlLoop {
 public:
  /// @param frames  at the most
  /// @param engine  that measures, in place of the one that the options name
  ControlLoop(Camera& camera, std::size_t frames, const LoopOptions& options, Engine& engine);
  ~ControlLoop();
  ControlLoop(const ControlLoop&) = delete;
  ControlLoop& operator=(const ControlLoop&) = delete;
  ControlLoop(ControlLoop&&) = delete;
  ControlLoop& operator=(ControlLoop&&) = delete;

  void Record(const Eigen::Ref<const Eigen::VectorXd>& disturbance);  ///< and the residual that it leaves
  void Displace();                                                    ///< the spots, by the residual
  void Draw();                                                        ///< the frame
  void Measure();                                                     ///< its slopes
  void Correct();                                                     ///< by them

  [[nodiscard]] bool HasDiverged() const;

  /// The records so far. Ends the loop.
  LoopRun Take();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

/// Mean residuals of a run, and the disturbance over its second half; rad RMS.
struct LoopSummary {
  double before;       ///< before the first correction acted
  double after;        ///< over the second half of the run
  double disturbance;  ///< there
};

/// Why a run was no success, in a sentence: it has diverged, or is no better than none. Empty if it was one.
std::string FailureOf(const LoopRun& run, const LoopSummary& summary);

/// @param delay  that the loop had
LoopSummary SummaryOf(const LoopRun& run, int delay);

/// RMS over the frames [first, last) of a record's vector.
double Rms(const std::vector<FrameRecord>& records, Eigen::VectorXd FrameRecord::*vector, std::size_t first,
           std::size_t last);

}  // namespace quen::workbench
