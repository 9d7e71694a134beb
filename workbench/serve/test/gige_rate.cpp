// A camera that is given ready frames at a rate, for a client to measure what comes of them: gige_rate RATE SECONDS
#include <fmt/format.h>

#include <cstdlib>
#include <gsl/span>
#include <vector>

#include "workbench/sensor/dimensions.hpp"
#include "workbench/serve/clock.hpp"
#include "workbench/serve/gige_camera.hpp"
#include "workbench/serve/schedule.hpp"

int main(int count, char** words) {
  using namespace quen::workbench;
  const gsl::span<char*> arguments(words, static_cast<std::size_t>(count));
  if (arguments.size() != 3) return EXIT_FAILURE;
  const double rate = std::strtod(arguments[1], nullptr);
  const auto frames = static_cast<std::uint64_t>(rate * std::strtod(arguments[2], nullptr));
  std::vector<std::uint16_t> pixels(kFrameWidth * kFrameHeight);
  GigeCamera camera("127.0.0.1", "rate", rate);
  MonotonicClock clock;
  const Schedule schedule(rate, clock.Now());
  for (std::uint64_t k = 0; k < frames; ++k) {
    clock.WaitUntil(schedule.Due(k));
    pixels[k % pixels.size()] = static_cast<std::uint16_t>(k);
    camera.Send(pixels);
  }
  camera.Finish();
  const auto [sent, left_out] = camera.Counts();
  fmt::print("{} frames at {:g} a second: {} sent, {} left out\n", frames, rate, sent, left_out);
  return EXIT_SUCCESS;
}
