#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "workbench/fits/input_file.hpp"
#include "workbench/sensor/camera.hpp"

namespace quen::workbench {

inline constexpr double kHighestSigned = 32767.0;  ///< of signed numbers of 16 bits

/// Pixels of a detector, row-major: signed 16-bit numbers, as ShsSimulator::Frame() has them, or counts from 0 on.
struct Frame {
  std::size_t width;
  std::size_t height;
  std::vector<std::uint16_t> pixels;
  bool is_unsigned = false;
  std::vector<std::uint8_t> blank = {};  ///< other than 0 where a pixel, then 0, has no value; empty if all have one

  [[nodiscard]] quen::centroiders::PixelSign Sign() const {
    return is_unsigned ? quen::centroiders::PixelSign::kUnsigned : quen::centroiders::PixelSign::kSigned;
  }
  /// The number that is in one of its pixels.
  [[nodiscard]] double Value(std::uint16_t pixel) const {
    return is_unsigned ? pixel : static_cast<std::int16_t>(pixel);
  }
  /// Those of all pixels, NaN where there is none.
  [[nodiscard]] std::vector<double> Values() const;
};

/// The frames in one image of a file: the image, or the planes of a cube. Its pixels may be numbers of any type, tiles
/// of it compressed.
class FrameReader {
 public:
  /// @param extension  name or number of the image's extension; empty: the primary image or, where that has no pixels,
  ///                   the first extension
  /// @throws std::runtime_error  there is no such image, or it has other than two or three axes
  FrameReader(const InputFile& file, const std::string& extension);

  [[nodiscard]] const std::string& Name() const { return file_.Name(); }  ///< of the file
  [[nodiscard]] const std::vector<std::size_t>& Axes() const { return axes_; }
  [[nodiscard]] std::size_t Width() const { return axes_[0]; }
  [[nodiscard]] std::size_t Height() const { return axes_[1]; }
  [[nodiscard]] std::size_t Count() const { return axes_.size() == 3 ? axes_[2] : 1; }

  /// Reads a frame, numbered from 0. It is unsigned if the file says so by BZERO = 32768, or if a pixel is above 32767.
  /// Pixels that are NaN, or BLANK among whole numbers, have no value.
  /// @throws std::runtime_error  it cannot be read, no pixel has a value, or one is no whole number of 16 bits
  [[nodiscard]] Frame Read(std::size_t number) const;

  /// Copies what the image's header says of a detector to that which the file stands on.
  /// @throws std::runtime_error  it cannot be read or written
  void CopyDetectorKeysTo(const quen::common::Fits::Handle& file) const;

 private:
  const InputFile& file_;
  quen::common::Fits::Handle image_;
  std::vector<std::size_t> axes_;
};

/// That there are frames, and that they are the sensor's.
/// @throws std::runtime_error  there is none, or they are not of 840 × 816 pixels
void RequireSensorSize(const FrameReader& frames);

/// Reads the frame in a file's primary image.
/// @throws std::runtime_error  as FrameReader; there is more than one
Frame ReadFrame(const InputFile& file);

/// A FITS file of the camera's frame: as ShsSimulator::ComputeFrame writes it, or, of a detector, of unsigned numbers,
/// with what the detector is in the header.
std::string FrameFile(const Camera& camera, const Exposure& exposure);

/// The camera's frame.
Frame FrameOf(const Camera& camera, const Exposure& exposure);

}  // namespace quen::workbench
