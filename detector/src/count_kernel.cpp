#include <algorithm>
#include <cmath>

#include "common/simd/vector_memory.hpp"
#include "detector/src/exposure.hpp"
#include "detector/src/poisson.hpp"
#include "detector/src/vectors.hpp"

// The first stage and the last one: one operation of double precision after the other, the same in all forms. Adding
// 2⁵² leaves the whole number nearest to a count, halves to the even one, as rounding does.

namespace quen::detector {
namespace {

using common::simd::Level;
using common::simd::Load;
using common::simd::Pick;
using common::simd::Store;

void ExpectPlain(const double* response, const double* dark, const double* values, double* lambda) {
  for (std::size_t k = 0; k < kChunk; ++k) {
    const double light = values[k] > 0.0 ? std::min(values[k], kMostLight) : 0.0;
    lambda[k] = std::min(response[k] * light + dark[k], kMostElectrons);
  }
}

void ConvertPlain(double gain, const double* offset, double highest, const double* electrons, std::uint16_t* counts) {
  for (std::size_t k = 0; k < kChunk; ++k) {
    const double count = gain * electrons[k] + offset[k];
    counts[k] = static_cast<std::uint16_t>(std::nearbyint(std::min(std::max(count, 0.0), highest)));
  }
}

template <std::size_t W>
QUEN_ALWAYS_INLINE void ExpectVectors(const double* response, const double* dark, const double* values,
                                      double* lambda) {
  using Doubles = typename Vectors<W>::Doubles;
  constexpr std::size_t kHalf = W / 2;
  for (std::size_t k = 0; k < kChunk; k += kHalf) {
    Doubles value;
    Doubles sensitivity;
    Doubles rest;
    Load(value, values + k);
    Load(sensitivity, response + k);
    Load(rest, dark + k);
    const Doubles light = value > 0.0 ? (value < kMostLight ? value : Doubles{} + kMostLight) : Doubles{};
    const Doubles expected = sensitivity * light + rest;
    const Doubles capped = expected < kMostElectrons ? expected : Doubles{} + kMostElectrons;
    Store(capped, lambda + k);
  }
}

template <std::size_t W>
QUEN_ALWAYS_INLINE void ConvertVectors(double gain, const double* offset, double highest, const double* electrons,
                                       std::uint16_t* counts) {
  using Doubles = typename Vectors<W>::Doubles;
  using HalfInts = typename Vectors<W>::HalfInts;
  using HalfCounts = typename Vectors<W>::HalfCounts;
  constexpr std::size_t kHalf = W / 2;
  for (std::size_t k = 0; k < kChunk; k += kHalf) {
    Doubles held;
    Doubles pedestal;
    Load(held, electrons + k);
    Load(pedestal, offset + k);
    const Doubles count = gain * held + pedestal;
    const Doubles positive = count > 0.0 ? count : Doubles{};
    const Doubles clamped = positive < highest ? positive : Doubles{} + highest;
    const Doubles rounded = (clamped + 0x1p52) - 0x1p52;
    Store(__builtin_convertvector(__builtin_convertvector(rounded, HalfInts), HalfCounts), counts + k);
  }
}

QUEN_TARGET_AVX2 void ExpectAvx2(const double* response, const double* dark, const double* values, double* lambda) {
  ExpectVectors<8>(response, dark, values, lambda);
}
QUEN_TARGET_AVX512 void ExpectAvx512(const double* response, const double* dark, const double* values, double* lambda) {
  ExpectVectors<16>(response, dark, values, lambda);
}
QUEN_TARGET_AVX2 void ConvertAvx2(double gain, const double* offset, double highest, const double* electrons,
                                  std::uint16_t* counts) {
  ConvertVectors<8>(gain, offset, highest, electrons, counts);
}
QUEN_TARGET_AVX512 void ConvertAvx512(double gain, const double* offset, double highest, const double* electrons,
                                      std::uint16_t* counts) {
  ConvertVectors<16>(gain, offset, highest, electrons, counts);
}

}  // namespace

void Expect(Level level, const Plan& plan, std::size_t first, const double* values, double* lambda) {
  Pick(level, ExpectPlain, ExpectAvx2, ExpectAvx512)(plan.response.At(first), plan.dark.At(first), values, lambda);
}

void Convert(Level level, const Plan& plan, std::size_t first, const double* electrons, std::uint16_t* counts) {
  Pick(level, ConvertPlain, ConvertAvx2, ConvertAvx512)(plan.gain, plan.offset.At(first), plan.highest, electrons,
                                                        counts);
}

}  // namespace quen::detector
