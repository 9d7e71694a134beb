#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "shssim/shs_simulator.hpp"
#include "shssim/spot.hpp"

namespace quen::testing {

/// A simulator whose data a test can reach and change.
class SimulatorUnderTest : public shssim::ShsSimulator {
 public:
  using ShsSimulator::cm;
  using ShsSimulator::flux;
  using ShsSimulator::flux_used;
  using ShsSimulator::frame;
  using ShsSimulator::frame_values;
  using ShsSimulator::m2s;
  using ShsSimulator::rois;
  using ShsSimulator::rois_used;
  using ShsSimulator::slopes;
  using ShsSimulator::x_slopes;
  using ShsSimulator::x_slopes_used;
  using ShsSimulator::y_slopes;
  using ShsSimulator::y_slopes_used;
};

/// Where pixel (x, y) is in a frame.
inline std::size_t Index(std::size_t x, std::size_t y) { return x + 840 * y; }

/// Both frames as the formula gives them, written down a second time.
struct PlainFrames {
  std::vector<double> values = std::vector<double>(685440, 0.0);
  std::vector<std::uint16_t> pixels = std::vector<std::uint16_t>(685440, 0);

  void Render(const std::vector<image_processing::Roi>& rois, const std::vector<double>& dx,
              const std::vector<double>& dy, double noise, std::mt19937& generator) {
    for (std::size_t i = 0; i < rois.size(); ++i) {
      const double cx = rois[i].x_ref + dx[i];
      const double cy = rois[i].y_ref + dy[i];
      for (int y = rois[i].y_low; y < rois[i].y_up; ++y) {
        for (int x = rois[i].x_low; x < rois[i].x_up; ++x) {
          std::uniform_real_distribution<double> noise_of_pixel(-noise, noise);
          const double n = noise_of_pixel(generator);
          const double r2 = (x - cx) * (x - cx) + (y - cy) * (y - cy);
          const double value = shssim::kSpotPeak * std::exp(shssim::kSpotExponent * r2) + n;
          const std::size_t index = Index(static_cast<std::size_t>(x), static_cast<std::size_t>(y));
          values[index] = value;
          const bool fits = value > -2147483649.0 && value < 2147483648.0;
          pixels[index] = fits ? static_cast<std::uint16_t>(static_cast<std::int32_t>(value)) : std::uint16_t{0};
        }
      }
    }
  }
};

/// Whether all elements are equal, a NaN to another one too.
inline bool SameValues(const std::vector<double>& a, const std::vector<double>& b) {
  return std::ranges::equal(a, b, [](double x, double y) { return x == y || (x != x && y != y); });
}

/// `count` numbers uniform in [−span, span), the same for the same seed.
inline std::vector<double> RandomNumbers(std::size_t count, double span, std::uint32_t seed) {
  std::mt19937 generator(seed);
  std::uniform_real_distribution<double> uniform(-span, span);
  std::vector<double> numbers(count);
  for (double& number : numbers) number = uniform(generator);
  return numbers;
}

}  // namespace quen::testing
