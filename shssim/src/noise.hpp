#pragma once

#include <array>
#include <cstddef>
#include <random>

#include "common/random/uniform_stream.hpp"

namespace quen::shssim {

/// The uniform noise of one frame, drawn in bulk: pixel by pixel the number that
/// std::uniform_real_distribution<double>(-noise, noise) gives, which is u · (noise − (−noise)) + (−noise).
///
/// It has the generator's state as long as it lives, and leaves the generator where drawing pixel by pixel leaves it.
/// As its stream, it is neither copied nor moved.
class Noise {
 public:
  /// Numbers that Take gives at the most.
  static constexpr std::size_t kMaxTake = common::random::UniformStream::kMaxTake;

  Noise(common::simd::Level level, std::mt19937& generator, double noise)
      : low_(-noise), span_(noise - low_), stream_(level, generator) {}

  /// The canonical values u of the next `count` pixels; the number of a pixel is Scaled(u). Where every number is 0
  /// nothing is drawn, but the generator moves on all the same: here, pixels at a time, as the processor then writes
  /// what it has drawn while it goes on.
  const double* Take(std::size_t count) {
    if (span_ != 0.0) return stream_.Take(count);
    stream_.Skip(count);
    return zeros_.data();
  }

  [[nodiscard]] double Low() const { return low_; }
  [[nodiscard]] double Span() const { return span_; }
  [[nodiscard]] double Scaled(double u) const { return u * span_ + low_; }

 private:
  double low_;
  double span_;
  std::array<double, kMaxTake + common::random::UniformStream::kSlack> zeros_{};
  common::random::UniformStream stream_;
};

}  // namespace quen::shssim
