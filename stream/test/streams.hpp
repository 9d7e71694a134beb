#pragma once

#include <cstddef>
#include <cstdint>
#include <gsl/span>
#include <string>
#include <vector>

#include "stream/reader.hpp"
#include "stream/writer.hpp"
#include "testing/environment.hpp"
#include "testing/process.hpp"

/// @file
/// Streams in a folder of a test's own.

namespace quen::testing {

/// While one lives, streams are in a folder of its own.
class StreamFolder {
 public:
  [[nodiscard]] std::string operator/(const std::string& name) const { return folder_ / name; }
  [[nodiscard]] std::string Path() const { return folder_.Path(); }

 private:
  TempDir folder_;
  ScopedVariable variable_{"MILK_SHM_DIR", folder_.Path()};
};

/// Runs the reader and maker of streams that has nothing of ours in it.
/// @param arguments  of plain_stream.py, as words of a shell
inline Outcome RunPlainStream(const std::string& arguments) {
  return Run(Quoted(QUEN_PYTHON) + " " + Quoted(QUEN_SOURCE_DIR "/stream/test/plain_stream.py") + " " + arguments);
}

/// A stream "test" of 16-bit pixels, 5 × 3.
inline stream::StreamConfig SmallStream() {
  return {.name = "test",
          .size = {5, 3},
          .keywords = {{"FRAME", std::int64_t{-1}, "counted from 0"}, {"NOISE", 2.5}, {"WHERE", std::string("here")}}};
}

inline constexpr std::timespec kAnyTime = {.tv_sec = 1'700'000'000, .tv_nsec = 123};

/// Publishes a frame whose pixels all are this one.
inline void PublishEqual(stream::Writer& writer, std::int16_t pixel) {
  const std::vector<std::int16_t> pixels(writer.Bytes() / sizeof(pixel), pixel);
  writer.Publish(gsl::as_bytes(gsl::span(pixels)), kAnyTime);
}

/// The pixels of one whole frame.
inline std::vector<std::int16_t> PixelsOf(const stream::Reader& reader, stream::FrameInfo& info) {
  std::vector<std::int16_t> pixels(reader.Bytes() / sizeof(std::int16_t));
  while (!reader.Read(gsl::as_writable_bytes(gsl::span(pixels)), info)) {
  }
  return pixels;
}

}  // namespace quen::testing
