#pragma once

#include <functional>
#include <string>

#include "workbench/engines/engines.hpp"
#include "workbench/sensor/calibration.hpp"
#include "workbench/sensor/camera.hpp"
#include "workbench/sensor/dimensions.hpp"

/// @file
/// A modes-to-slopes matrix, measured as on an instrument: each mode is pushed and pulled, and the slopes are measured.

namespace quen::workbench {

struct PokeOptions {
  static constexpr common::Limits kAmplitude = {1e-3, kSlopeLimit};

  std::string engine = kDefaultEngine;  ///< that measures, as for MakeEngine
  double amplitude = 1.0;               ///< largest displacement of a spot, pixels, within kAmplitude
  Exposure exposure = {.noise = 0.0};
};

/// The frames that a measurement renders.
inline constexpr int kPokeFrames = 2 * static_cast<int>(kNumModes);

/// A camera on a calibration that is on no disk.
Camera CameraOn(const Calibration& calibration);

/// A calibration with its matrix measured. Column m is (s(+a) − s(−a)) / 2a: slopes measured with mode m of the
/// camera's own matrix at the amplitudes ±a that move no spot by more than `amplitude`.
/// @param camera       on this calibration
/// @param after_frame  called after each frame
/// @throws std::runtime_error  a mode moves no spot, or the engine gives slopes that are not finite
Calibration Measured(Camera& camera, const Calibration& calibration, const PokeOptions& options,
                     const std::function<void()>& after_frame);
/// The same with this engine in place of the one that the options name, which says what it is called.
Calibration Measured(Camera& camera, const Calibration& calibration, const PokeOptions& options, Engine& engine,
                     const std::function<void()>& after_frame);

}  // namespace quen::workbench
