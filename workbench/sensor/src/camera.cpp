#include "workbench/sensor/camera.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "common/random/random.hpp"
#include "workbench/fits/header.hpp"

namespace quen::workbench {
namespace {

quen::detector::Detector DetectorOf(const Exposure& exposure, double noise_factor) {
  quen::detector::DetectorConfig config = exposure.detector->config;
  config.seed = exposure.seed;
  config.read_noise = std::min(config.read_noise * noise_factor, quen::detector::DetectorLimits::kReadNoise.highest);
  return quen::detector::Detector(config);
}

}  // namespace

void WriteExposureKeys(const quen::common::Fits::Handle& file, const Exposure& exposure) {
  if (exposure.detector) {
    WriteDetectorKeys(file, *exposure.detector);
  } else {
    WriteKey(file, "NOISE", exposure.noise, "half-width, units of pixel values");
  }
  WriteKey(file, kSeedKeyword, static_cast<long>(exposure.seed), "of all that is random");
}

void WriteExposureOfDetector(const quen::common::Fits::Handle& file, const Exposure& exposure) {
  if (exposure.detector) WriteExposureKeys(file, exposure);
}

std::string InWords(const Exposure& exposure) {
  if (!exposure.detector) return fmt::format("noise {:g}", exposure.noise);
  return InWords(*exposure.detector);
}

void Camera::Load(gsl::span<const std::uint16_t> pixels) {
  if (pixels.size() != frame.size()) throw std::invalid_argument("Camera: expected a frame of 840 x 816 pixels");
  std::memmove(frame.data(), pixels.data(), pixels.size_bytes());  // it may be the camera's own
}

void Camera::Use(const Exposure& exposure) {
  quen::common::random::detail::MersenneTwisterEngine().seed(exposure.seed);
  frame_number_ = 0;
  std::ranges::fill(frame, 0);  // a detector's pixels are everywhere, the simulator's in the regions alone
  exposure_ = exposure;
  detectors_.clear();
  if (exposure.detector) DetectorWith(1.0);
}

void Camera::Draw(const Displacements& displacements, double noise_factor) {
  const double noise = exposure_.detector ? 0.0 : exposure_.noise * noise_factor;
  ComputeFrame(displacements.x, displacements.y, noise, std::nullopt);
  if (exposure_.detector) DetectorWith(noise_factor).Expose(frame_values, frame_number_, frame);
  ++frame_number_;
}

const quen::detector::Detector& Camera::DetectorWith(double noise_factor) {
  const auto known = detectors_.find(noise_factor);
  if (known != detectors_.end()) return known->second;
  return detectors_.emplace(noise_factor, DetectorOf(exposure_, noise_factor)).first->second;
}

}  // namespace quen::workbench
