#include "workbench/sensor/camera.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "common/random/random.hpp"
#include "workbench/fits/header.hpp"

namespace quen::workbench {
namespace {

quen::detector::Detector SeededDetector(const DetectorDescription& description, std::uint32_t seed) {
  quen::detector::DetectorConfig config = description.config;
  config.seed = seed;
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
  detector_.reset();
  noise_ = exposure.noise;
  if (exposure.detector) {
    detector_ = SeededDetector(*exposure.detector, exposure.seed);
    noise_ = 0.0;
  }
}

void Camera::Draw(const Displacements& displacements) {
  ComputeFrame(displacements.x, displacements.y, noise_, std::nullopt);
  if (detector_) detector_->Expose(frame_values, frame_number_, frame);
  ++frame_number_;
}

}  // namespace quen::workbench
