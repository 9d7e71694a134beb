#include "detector/src/exposure.hpp"

#include <algorithm>
#include <array>
#include <limits>

#include "detector/src/gamma.hpp"

namespace quen::detector {

void Hold(double full_well, double* electrons) {
  for (std::size_t k = 0; k < kChunk; ++k) electrons[k] = std::min(electrons[k], full_well);
}

void Multiply(const Stream& stream, std::size_t first, double gain, double* electrons) {
  for (std::size_t k = 0; k < kChunk; ++k) {
    if (electrons[k] == 0.0) continue;
    electrons[k] = gain * GammaNumber(stream, static_cast<std::uint32_t>(first + k), electrons[k]);
  }
}

void Expose(common::simd::Level level, const Plan& plan, const double* values, std::uint64_t frame_number,
            std::uint16_t* frame) {
  const Stream stream = {plan.seed, frame_number};
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): written before it is read
  alignas(64) std::array<double, kChunk> electrons;
  for (std::size_t first = 0; first < kPixels; first += kChunk) {
    Expect(level, plan, first, values + first, electrons.data());
    if (plan.photon_noise) CountPhotons(level, stream, first, electrons.data());
    if (plan.full_well < std::numeric_limits<double>::infinity()) Hold(plan.full_well, electrons.data());
    if (plan.em_gain > 1.0) Multiply(stream, first, plan.em_gain, electrons.data());
    if (plan.read_noise > 0.0) AddReadNoise(level, stream, first, plan.read_noise, electrons.data());
    Convert(level, plan, first, electrons.data(), frame + first);
  }
  for (const StuckPixel& stuck : plan.stuck) frame[stuck.pixel] = stuck.count;
}

}  // namespace quen::detector
