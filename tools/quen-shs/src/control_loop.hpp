#pragma once

#include <Eigen/Dense>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "shssim/shs_simulator.hpp"
#include "tools/quen-shs/src/engines.hpp"

/// @file
/// A modal integrator loop around the simulated sensor.

namespace quen_shs {

inline constexpr double kCorrelation = 0.9995;  ///< of the disturbance from one frame to the next
inline constexpr double kSlopeLimit = 12.0;     ///< pixels: half a region

struct LoopOptions {
  int frames = 1000;
  double gain = 0.5;
  int delay = 1;           ///< frames from a measurement to the first one that its correction acts on
  double noise = 10.0;     ///< half-width, units of pixel values
  double strength = 20.0;  ///< D/r0 of the disturbance
  std::uint32_t seed = 1;
  std::string engine = kDefaultEngine;  ///< that measures, as for MakeEngine
};

/// What one frame leaves behind. Modes in radians; an RMS is the root of the sum of their squares.
struct FrameRecord {
  Eigen::VectorXd disturbance;
  Eigen::VectorXd correction;
  Eigen::VectorXd residual;  ///< disturbance − correction
};

/// Where the last frame and its measurement are written.
struct LastFrameFiles {
  std::string frame;
  std::string slopes;
};

/// Closes the loop, frame by frame:
///
///     residual e = d − c  →  displacements M2S · e  →  frame  →  slopes s  →  c ← c + gain · CM · s, `delay` frames on
///
/// Seeds the disturbance and the calling thread's noise from `options.seed`, so that equal options give equal records.
///
/// @param after_frame  called with the number of frames done, after each
std::vector<FrameRecord> RunLoop(quen::shssim::ShsSimulator& simulator, const LoopOptions& options,
                                 const LastFrameFiles& files, const std::function<void(int)>& after_frame);

/// RMS over the frames [first, last) of a record's vector.
double Rms(const std::vector<FrameRecord>& records, Eigen::VectorXd FrameRecord::*vector, std::size_t first,
           std::size_t last);

}  // namespace quen_shs
