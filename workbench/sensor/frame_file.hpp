#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "workbench/fits/input_file.hpp"
#include "workbench/sensor/camera.hpp"

namespace quen::workbench {

/// Pixels of a detector, row-major: signed 16-bit numbers, as ShsSimulator::Frame() has them, or counts from 0 on.
struct Frame {
  std::size_t width;
  std::size_t height;
  std::vector<std::uint16_t> pixels;
  bool is_unsigned = false;

  /// The number that is in one of its pixels.
  [[nodiscard]] double Value(std::uint16_t pixel) const {
    return is_unsigned ? pixel : static_cast<std::int16_t>(pixel);
  }
};

/// Reads a frame: a primary image of two axes and 16-bit integers, signed, or unsigned by BZERO = 32768.
/// @throws std::runtime_error  the file cannot be read, or is another image
Frame ReadFrame(const InputFile& file);

/// @throws std::runtime_error  a value is above 32767, which engines would take for a dark pixel
void RequireSignedRange(const InputFile& file, const Frame& frame);

/// A FITS file of the camera's frame: as ShsSimulator::ComputeFrame writes it, or, of a detector, of unsigned numbers,
/// with what the detector is in the header.
std::string FrameFile(const Camera& camera, const Exposure& exposure);

/// The camera's frame.
Frame FrameOf(const Camera& camera, const Exposure& exposure);

}  // namespace quen::workbench
