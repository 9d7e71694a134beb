#include "detector/src/exposure.hpp"

#include <algorithm>
#include <array>
#include <cmath>

#include "detector/src/gamma.hpp"
#include "detector/src/normal.hpp"
#include "detector/src/poisson.hpp"

namespace quen::detector {
namespace {

using common::simd::Level;
using common::simd::Pick;

void ExpectPlain(const double* response, const double* dark, const double* values, double* lambda) {
  for (std::size_t k = 0; k < kChunk; ++k) {
    const double light = values[k] > 0.0 ? std::min(values[k], kMostLight) : 0.0;
    lambda[k] = std::min(response[k] * light + dark[k], kMostElectrons);
  }
}

void CountPhotonsPlain(const Stream& stream, std::size_t first, double* electrons) {
  for (std::size_t k = 0; k < kChunk; ++k) {
    electrons[k] = PhotonElectrons(stream, static_cast<std::uint32_t>(first + k), electrons[k]);
  }
}

void AddReadNoisePlain(const Stream& stream, std::size_t first, double rms, double* electrons) {
  for (std::size_t k = 0; k < kChunk; ++k) {
    electrons[k] += rms * ReadDeviate(stream, static_cast<std::uint32_t>(first + k));
  }
}

void ConvertPlain(double gain, const double* offset, double highest, const double* electrons, std::uint16_t* counts) {
  for (std::size_t k = 0; k < kChunk; ++k) {
    const double count = gain * electrons[k] + offset[k];
    counts[k] = static_cast<std::uint16_t>(std::nearbyint(std::min(std::max(count, 0.0), highest)));
  }
}

}  // namespace

double ReadDeviate(const Stream& stream, std::uint32_t pixel) {
  const std::uint32_t block = pixel / 64 * 16 + pixel % 16;
  const std::size_t quarter = pixel / 16 % 4;
  const std::size_t word = quarter / 2 * 2;
  const Words words = Draw(stream, Stage::kRead, block);
  const std::uint32_t radius = words.at(word);
  const float u =
      IsInTail(radius) ? UniformOf(radius, Draw(stream, Stage::kReadMore, block).at(word)) : UniformOf(radius);
  const NormalPair normals = NormalsOf(u, words.at(word + 1));
  return static_cast<double>(quarter % 2 == 0 ? normals.first : normals.second);
}

void Expect(Level /*level*/, const Plan& plan, std::size_t first, const double* values, double* lambda) {
  ExpectPlain(plan.response.At(first), plan.dark.At(first), values, lambda);
}

void CountPhotons(Level /*level*/, const Stream& stream, std::size_t first, double* electrons) {
  CountPhotonsPlain(stream, first, electrons);
}

void Hold(double full_well, double* electrons) {
  for (std::size_t k = 0; k < kChunk; ++k) electrons[k] = std::min(electrons[k], full_well);
}

void Multiply(const Stream& stream, std::size_t first, double gain, double* electrons) {
  for (std::size_t k = 0; k < kChunk; ++k) {
    if (electrons[k] == 0.0) continue;
    electrons[k] = gain * GammaNumber(stream, static_cast<std::uint32_t>(first + k), electrons[k]);
  }
}

void AddReadNoise(Level /*level*/, const Stream& stream, std::size_t first, double rms, double* electrons) {
  AddReadNoisePlain(stream, first, rms, electrons);
}

void Convert(Level /*level*/, const Plan& plan, std::size_t first, const double* electrons, std::uint16_t* counts) {
  ConvertPlain(plan.gain, plan.offset.At(first), plan.highest, electrons, counts);
}

void Expose(Level level, const Plan& plan, const double* values, std::uint64_t frame_number, std::uint16_t* frame) {
  const Stream stream = {plan.seed, frame_number};
  alignas(64) std::array<double, kChunk> electrons;
  for (std::size_t first = 0; first < kPixels; first += kChunk) {
    Expect(level, plan, first, values + first, electrons.data());
    if (plan.photon_noise) CountPhotons(level, stream, first, electrons.data());
    Hold(plan.full_well, electrons.data());
    if (plan.em_gain > 1.0) Multiply(stream, first, plan.em_gain, electrons.data());
    if (plan.read_noise > 0.0) AddReadNoise(level, stream, first, plan.read_noise, electrons.data());
    Convert(level, plan, first, electrons.data(), frame + first);
  }
  for (const StuckPixel& stuck : plan.stuck) frame[stuck.pixel] = stuck.count;
}

}  // namespace quen::detector
