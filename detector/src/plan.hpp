#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "detector/detector.hpp"

namespace quen::detector {

/// Pixels that go through all stages at a time. Whole blocks of random numbers, and a whole part of a frame.
inline constexpr std::size_t kChunk = 640;
static_assert(kPixels % kChunk == 0 && kChunk % 64 == 0);

/// A value for each pixel, or one for all, of which there is a chunk.
class PerPixel {
 public:
  PerPixel() = default;
  explicit PerPixel(double value) : values_(kChunk, value) {}
  explicit PerPixel(std::vector<double> values) : values_(std::move(values)) {}

  /// Of the chunk that begins with a pixel.
  [[nodiscard]] const double* At(std::size_t first) const {
    return values_.data() + (values_.size() == kChunk ? 0 : first);
  }

 private:
  std::vector<double> values_;
};

struct StuckPixel {
  std::size_t pixel;
  std::uint16_t count;
};

/// What is made of a configuration.
struct Plan {
  PerPixel response;  ///< flat · electrons_per_unit
  PerPixel dark;      ///< all expected electrons that do not depend on the value
  PerPixel offset;    ///< counts
  bool photon_noise;
  double em_gain;
  double read_noise;
  double full_well;  ///< infinite without one
  double gain;
  double highest;  ///< count
  std::uint64_t seed;
  std::vector<StuckPixel> stuck;
};

}  // namespace quen::detector
