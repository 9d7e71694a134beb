#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "common/checks/limits.hpp"
#include "workbench/engines/engines.hpp"
#include "workbench/live/durations.hpp"
#include "workbench/live/follower.hpp"
#include "workbench/sensor/camera.hpp"

namespace quen::workbench {

struct ControllerOptions {
  static constexpr common::Limits kTimeout = {0.1, 86400.0};

  std::string frames;       ///< stream that they come from
  std::string corrections;  ///< stream that they are written to
  double gain = 0.5;
  double leak = 0.0;
  std::string engine = kDefaultEngine;  ///< that measures
  double timeout = 10.0;                ///< longest wait for a frame, seconds
};

/// What a controller has done so far.
struct ControllerCounts {
  std::uint64_t frames = 0;
  std::uint64_t lost = 0;        ///< frames that were written, and not seen
  std::uint64_t made_anew = 0;   ///< times that their stream was
  std::uint64_t lost_spots = 0;  ///< in all frames: those for which the engine gave no finite displacement
};

/// The other end of a closed loop: a frame comes from a stream, the engine measures it, and
///
///     c ← (1 − leak) · c + gain · CM · s
///
/// goes into another stream, which this object makes: all 52 modes, in radians, float64, once for each frame. They are
/// what is to be taken from the disturbance, all of it and no increment. Their keyword FRAME is that of the frame they
/// are from or, where its stream has none, its count; the time acquired is the frame's.
///
/// A frame that is there already when the controller comes is taken: its writer may be waiting for corrections.
class Controller {
 public:
  /// Waits for the stream of frames, as long as `timeout` says.
  /// @param camera  that loads the frames; it lives as long as this
  /// @throws std::runtime_error     there is no such stream, or its frames are not of 840 × 816 pixels of 16 bits; the
  ///                                stream of corrections cannot be made
  /// @throws std::invalid_argument  a name, as for stream::PathOf; both are the same
  /// @throws Interrupted            a signal has come
  Controller(Camera& camera, const ControllerOptions& options);
  ~Controller();
  Controller(const Controller&) = delete;
  Controller& operator=(const Controller&) = delete;
  Controller(Controller&&) = delete;
  Controller& operator=(Controller&&) = delete;

  /// Waits a moment at most, and answers a frame if one has come.
  /// @throws std::runtime_error  none has come for too long; the stream was made anew with other frames
  StreamEvent Step();

  [[nodiscard]] const ControllerCounts& Counts() const;
  /// From the time that a frame was written until its corrections were, seconds.
  [[nodiscard]] const Durations& Latencies() const;
  /// From the first frame to the last one; 0 of less than two.
  [[nodiscard]] double FramesPerSecond() const;

  // The slopes of all used spots, pixels RMS.
  [[nodiscard]] double FirstSlopes() const;   ///< in the first frame
  [[nodiscard]] double RecentSlopes() const;  ///< in the last 100 frames, or as many as there were

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace quen::workbench
