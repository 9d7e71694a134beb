#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "workbench/fits/input_file.hpp"

namespace quen::workbench {

/// Pixels of a detector, row-major: signed 16-bit numbers in unsigned ones, as ShsSimulator::Frame() has them.
struct Frame {
  std::size_t width;
  std::size_t height;
  std::vector<std::uint16_t> pixels;
};

/// Reads a frame: a primary image of two axes and 16-bit integers, signed, or unsigned by BZERO = 32768.
/// @throws std::runtime_error  the file cannot be read, is another image, or holds a value above 32767, which engines
///                             would take for a dark pixel
Frame ReadFrame(const InputFile& file);

/// A FITS file of a frame, as ShsSimulator::ComputeFrame writes it.
std::string FrameFile(const Frame& frame);

}  // namespace quen::workbench
