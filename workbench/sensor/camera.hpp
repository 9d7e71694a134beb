#pragma once

#include <cstdint>
#include <gsl/span>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "centroiders/pixel_reading.hpp"
#include "common/checks/limits.hpp"
#include "common/fits/fits.hpp"
#include "shssim/shs_simulator.hpp"
#include "workbench/detector/description.hpp"
#include "workbench/sensor/displacements.hpp"

namespace quen::workbench {

/// How light becomes a frame: with the simulator's own noise, or by a detector.
struct Exposure {
  static constexpr common::Limits kNoise = {0.0, 1e6};  ///< that a user may choose

  double noise = 10.0;     ///< half-width, units of pixel values; without a detector
  std::uint32_t seed = 1;  ///< of either
  std::shared_ptr<const DetectorDescription> detector = {};

  [[nodiscard]] quen::centroiders::PixelSign Sign() const { return SignOf(detector); }  ///< of the frame's pixels
};

/// Noise or detector, and the seed, in the header that the file stands on.
void WriteExposureKeys(const quen::common::Fits::Handle& file, const Exposure& exposure);

/// The same where there is a detector. Other files have the headers that the library's have.
void WriteExposureOfDetector(const quen::common::Fits::Handle& file, const Exposure& exposure);

/// The same for people, in a few words.
std::string InWords(const Exposure& exposure);

/// A simulator whose frames may come from elsewhere: from a file, or from a detector behind it.
class Camera : public quen::shssim::ShsSimulator {
 public:
  /// Takes a frame, 840 × 816 pixels, for the next measurement.
  void Load(gsl::span<const std::uint16_t> pixels);

  /// From now on frames are drawn so. They are numbered from 0 anew; the calling thread's generator is seeded.
  void Use(const Exposure& exposure);

  /// Draws the next frame. Allocates nothing, but where a detector's noise has a factor that it had not before.
  /// @param noise_factor  so many times larger is the simulator's half-width, or the detector's read noise
  void Draw(const Displacements& displacements, double noise_factor = 1.0);

 private:
  const quen::detector::Detector& DetectorWith(double noise_factor);

  Exposure exposure_ = {.noise = 0.0};
  std::map<double, quen::detector::Detector> detectors_;  ///< by the factor of their noise; none without a detector
  std::uint64_t frame_number_ = 0;
};

}  // namespace quen::workbench
