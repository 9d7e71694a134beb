// A host that hands its frames to other programs of this machine: they attach to the stream "sensor" and read.
//
// Run it where the calibration can be found, for instance
//     quen-shs calibrate sensor && CFGPATH=sensor MILK_SHM_DIR=/tmp ./publishing_host

#include <cstdint>
#include <cstdio>
#include <exception>
#include <vector>

#include "shssim/shs_simulator.hpp"
#include "stream/reader.hpp"
#include "stream/writer.hpp"

int main() {
  try {
    quen::shssim::ShsSimulator simulator;
    quen::stream::Writer writer({.name = "sensor",
                                 .type = quen::stream::PixelType::kInt16,
                                 .size = {quen::basesim::kFrameWidth, quen::basesim::kFrameHeight},
                                 .keywords = {{"FRAME", std::int64_t{0}, "counted from 0"}}});
    const std::vector<double> none(quen::basesim::kNumRois, 0.0);
    for (std::int64_t frame = 0; frame < 3; ++frame) {
      simulator.ComputeFrame(none, none, 10.0);
      const std::vector<quen::stream::KeywordValue> keywords = {frame};
      writer.Publish(gsl::as_bytes(gsl::span(simulator.Frame())), quen::stream::Now(), keywords);
    }

    // What any other program does.
    const quen::stream::Reader reader("sensor");
    std::vector<std::uint16_t> pixels(simulator.Frame().size());
    quen::stream::FrameInfo info;
    const bool is_whole = reader.Read(gsl::as_writable_bytes(gsl::span(pixels)), info);
    std::printf("frame %lu of stream sensor: %u x %u pixels, %s\n", info.count, reader.Size()[0], reader.Size()[1],
                is_whole && pixels == simulator.Frame() ? "as the simulator has them" : "others");
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
  return 0;
}
