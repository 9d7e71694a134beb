#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "stream/reader.hpp"

namespace quen::workbench {

/// Frames of a stream, to be a FITS file: a cube with the frames along its last axis, unsigned pixels by BZERO, and a
/// table "frames" with a row for each: its count, and when it was acquired and written. All is kept in memory.
class Recording {
 public:
  /// @throws std::runtime_error  FITS has no such pixels: complex ones, or floats of 16 bits
  Recording(const stream::Reader& reader, std::size_t frames);

  /// @throws std::runtime_error  the stream was made anew, and has other frames
  void Take(const stream::Reader& reader, const stream::FrameInfo& info, const std::vector<std::byte>& pixels);

  [[nodiscard]] bool IsWhole() const { return infos_.size() == frames_; }

  /// The file. Empties the recording.
  /// @param stream  its name
  /// @throws std::runtime_error  there is no memory for it
  std::string File(const std::string& stream);

 private:
  stream::PixelType type_;
  std::vector<std::uint32_t> size_;
  std::size_t frames_;
  std::vector<stream::FrameInfo> infos_;
  std::vector<std::byte> pixels_;
};

}  // namespace quen::workbench
