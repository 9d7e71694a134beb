// The smallest host: its own centroiding engine, one frame, one measurement.
//
// Run it where the calibration can be found, for instance
//     quen-shs calibrate sensor && CFGPATH=sensor ./smallest_host

#include <cstdint>
#include <cstdio>
#include <exception>
#include <vector>

#include "common/random/random.hpp"
#include "shssim/shs_simulator.hpp"

namespace {

/// Centre of gravity. Pixels are signed 16-bit numbers: under noise dark ones go below zero.
class CentreOfGravity : public quen::image_processing::Centroiding<std::uint16_t> {
 public:
  void Compute(gsl::span<const std::uint16_t> frame, const quen::image_processing::Roi& roi) override {
    flux = x = y = 0.0;
    for (std::size_t row = roi.y_low; row < roi.y_up; ++row) {
      for (std::size_t column = roi.x_low; column < roi.x_up; ++column) {
        const auto light = static_cast<std::int16_t>(frame[row * roi.x_max + column]);
        flux += light;
        x += light * (static_cast<double>(column) - roi.x_ref);
        y += light * (static_cast<double>(row) - roi.y_ref);
      }
    }
    x /= flux;
    y /= flux;
  }
};

}  // namespace

int main() {
  try {
    quen::common::random::detail::MersenneTwisterEngine().seed(1);  // the same noise in every run
    quen::shssim::ShsSimulator simulator;
    const std::vector<double> dx(quen::basesim::kNumRois, 0.5);  // pixels, toward higher columns
    const std::vector<double> dy(quen::basesim::kNumRois, -0.25);
    simulator.ComputeFrame(dx, dy, 10.0, std::nullopt);

    CentreOfGravity centroiding;
    simulator.ComputeSlopes(centroiding, 2.0, "slopes.fits");
    std::printf("first used sub-aperture: x %+.3f y %+.3f pixels, flux %.0f\n", simulator.XSlopesUsed()[0],
                simulator.YSlopesUsed()[0], simulator.FluxUsed()[0]);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
  return 0;
}
