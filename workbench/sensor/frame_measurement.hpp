#pragma once

#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "workbench/engines/engines.hpp"
#include "workbench/sensor/camera.hpp"
#include "workbench/sensor/displacements.hpp"
#include "workbench/sensor/frame_file.hpp"
#include "workbench/sensor/hot_pixels.hpp"
#include "workbench/sensor/pedestal.hpp"
#include "workbench/sensor/saturation.hpp"
#include "workbench/sensor/sensor_tables.hpp"

/// @file
/// Frames of a file, measured with a calibration.

namespace quen::workbench {

/// Mean and root mean square of values that are finite.
class Moments {
 public:
  void Add(double value);

  [[nodiscard]] bool AreNone() const { return count_ == 0; }  ///< the others are 0 then, but for what is lost
  [[nodiscard]] double Mean() const { return Over(sum_); }
  [[nodiscard]] double Rms() const;
  [[nodiscard]] double Largest() const { return largest_; }  ///< magnitude
  [[nodiscard]] std::size_t Lost() const { return lost_; }   ///< values that are not finite

 private:
  [[nodiscard]] double Over(double sum) const { return count_ > 0 ? sum / static_cast<double>(count_) : 0.0; }

  double sum_ = 0.0;
  double square_ = 0.0;
  double largest_ = 0.0;
  std::size_t count_ = 0;
  std::size_t lost_ = 0;
};

/// Values of pixels.
struct PixelRange {
  double lowest = std::numeric_limits<double>::infinity();
  double highest = -std::numeric_limits<double>::infinity();

  /// As engines read them: signed, which costs nothing, if that is the same.
  [[nodiscard]] quen::centroiders::PixelSign Sign() const;
};

struct MeasureOptions {
  std::string engine = kDefaultEngine;      ///< as MakeEngine takes it
  PixelMaps maps = {};                      ///< of the camera, as far as they are known
  std::optional<SpotTemplate> spot = {};    ///< the engine's template, which it takes if TakesTemplate says so
  double limit = kSlopeLimit;               ///< largest displacement, pixels; larger ones are cut to it
  std::optional<Displacements> truth = {};  ///< to compare with
};

/// What was measured in all frames together, at used sub-apertures.
struct MeasuredFrames {
  PixelRange pixels;
  Pedestal pedestal;      ///< of the frame that has the largest
  Saturation saturation;  ///< of the frame that has most of it
  HotPixels hot;          ///< of all frames together
  Moments flux;
  Moments x;
  Moments y;
  Moments error_x;  ///< against the truth, if there is one
  Moments error_y;
  std::size_t at_limit = 0;                   ///< spots
  std::size_t without_light = 0;              ///< spots whose flux is not above 0
  std::size_t spots = 0;                      ///< all of them
  std::size_t blank = 0;                      ///< pixels without a value, of whole frames; taken for bad ones
  std::vector<std::vector<SlopeRow>> slopes;  ///< of each frame, all sub-apertures
};

/// Measures all frames of an image; each is read as PixelRange::Sign says of it.
/// @throws std::runtime_error  there is no frame, they are not of 840 × 816 pixels, or one cannot be read
/// @throws Interrupted         a signal has come
MeasuredFrames MeasureFrames(const FrameReader& frames, Camera& camera, const MeasureOptions& options);

}  // namespace quen::workbench
