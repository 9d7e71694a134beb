#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "common/simd/level.hpp"
#include "common/simd/mask.hpp"
#include "detector/src/normal.hpp"
#include "detector/src/philox.hpp"

/// @file
/// What the fast forms of the stages share: vectors of W = 8 (AVX2) or 16 (AVX-512) elements of 32 bits, and random
/// words and normal deviates in them. Operators work on each element. All operations on single and double precision are
/// those of the scalar code, in its order, and none is fused: so the bits are the same.
///
/// Vectors go by reference: functions that are compiled for any processor must not take or return them.

namespace quen::detector {

// Vectors' bits are taken as those of other vectors; plain arrays, for loops over checked ones would not be unrolled;
// vectors are written before they are read.
// NOLINTBEGIN(cppcoreguidelines-pro-type-reinterpret-cast,cppcoreguidelines-avoid-c-arrays,cppcoreguidelines-pro-type-member-init)

template <std::size_t W>
struct Vectors {
  using Floats __attribute__((vector_size(4 * W))) = float;
  using Ints __attribute__((vector_size(4 * W))) = std::int32_t;
  using Words32 __attribute__((vector_size(4 * W))) = std::uint32_t;
  using Words64 __attribute__((vector_size(4 * W))) = std::uint64_t;  // half as many
  using Doubles __attribute__((vector_size(4 * W))) = double;         // half as many
  using HalfFloats __attribute__((vector_size(2 * W))) = float;
  using HalfInts __attribute__((vector_size(2 * W))) = std::int32_t;
  using HalfCounts __attribute__((vector_size(W))) = std::uint16_t;
};
using Narrow = Vectors<8>;
using Wide = Vectors<16>;

/// Without a mask, g++ 12 takes the intrinsics' unused operand for an uninitialised one.
inline constexpr __mmask16 kAllOfWide = 0xffff;

// --- What operators do not say -------------------------------------------------------------------------------------

/// The products of the low halves.
QUEN_TARGET_AVX2 inline void Product(const Narrow::Words64& a, const Narrow::Words64& b, Narrow::Words64& product) {
  product =
      reinterpret_cast<Narrow::Words64>(_mm256_mul_epu32(reinterpret_cast<__m256i>(a), reinterpret_cast<__m256i>(b)));
}
QUEN_TARGET_AVX512 inline void Product(const Wide::Words64& a, const Wide::Words64& b, Wide::Words64& product) {
  product = reinterpret_cast<Wide::Words64>(
      _mm512_maskz_mul_epu32(0xff, reinterpret_cast<__m512i>(a), reinterpret_cast<__m512i>(b)));
}

QUEN_TARGET_AVX2 inline void SquareRoot(Narrow::Floats& x) { x = _mm256_sqrt_ps(x); }
QUEN_TARGET_AVX512 inline void SquareRoot(Wide::Floats& x) { x = _mm512_maskz_sqrt_ps(kAllOfWide, x); }

QUEN_TARGET_AVX2 inline void Floor(const Narrow::Floats& x, Narrow::Floats& floor) { floor = _mm256_floor_ps(x); }
QUEN_TARGET_AVX512 inline void Floor(const Wide::Floats& x, Wide::Floats& floor) { floor = _mm512_floor_ps(x); }

QUEN_TARGET_AVX2 inline void Lower(const Narrow::Floats& x, Narrow::Floats& least) { least = _mm256_min_ps(x, least); }
QUEN_TARGET_AVX512 inline void Lower(const Wide::Floats& x, Wide::Floats& least) {
  least = _mm512_maskz_min_ps(kAllOfWide, x, least);
}

/// a · b + c with one rounding, for what need not be the plain form's bits.
QUEN_TARGET_AVX2 inline void Fused(const Narrow::Floats& a, const Narrow::Floats& b, const Narrow::Floats& c,
                                   Narrow::Floats& sum) {
  sum = _mm256_fmadd_ps(a, b, c);
}
QUEN_TARGET_AVX512 inline void Fused(const Wide::Floats& a, const Wide::Floats& b, const Wide::Floats& c,
                                     Wide::Floats& sum) {
  sum = _mm512_fmadd_ps(a, b, c);
}

/// The least magnitude so far: `least` is not negative.
QUEN_TARGET_AVX2 inline void LowerToMagnitude(const Narrow::Floats& x, Narrow::Floats& least) {
  Lower(_mm256_andnot_ps(_mm256_set1_ps(-0.0F), x), least);
}
QUEN_TARGET_AVX512 inline void LowerToMagnitude(const Wide::Floats& x, Wide::Floats& least) {
  Lower(_mm512_abs_ps(x), least);
}

/// A bit for each element of a that is at least that of b.
QUEN_TARGET_AVX2 inline std::uint32_t AtLeast(const Narrow::Floats& a, const Narrow::Floats& b) {
  return static_cast<std::uint32_t>(_mm256_movemask_ps(_mm256_cmp_ps(a, b, _CMP_GE_OQ)));
}
QUEN_TARGET_AVX512 inline std::uint32_t AtLeast(const Wide::Floats& a, const Wide::Floats& b) {
  return common::simd::Bits(_mm512_cmp_ps_mask(a, b, _CMP_GE_OQ));
}

/// A bit for each element of a, none of which is negative, that is below b.
QUEN_TARGET_AVX2 inline std::uint32_t Below(const Narrow::Ints& a, std::int32_t b) {
  return static_cast<std::uint32_t>(
      _mm256_movemask_ps(_mm256_castsi256_ps(_mm256_cmpgt_epi32(_mm256_set1_epi32(b), reinterpret_cast<__m256i>(a)))));
}
QUEN_TARGET_AVX512 inline std::uint32_t Below(const Wide::Ints& a, std::int32_t b) {
  return common::simd::Bits(_mm512_cmplt_epi32_mask(reinterpret_cast<__m512i>(a), _mm512_set1_epi32(b)));
}

/// Two halves become one.
QUEN_TARGET_AVX2 inline void Join(const Narrow::HalfFloats& low, const Narrow::HalfFloats& high, Narrow::Floats& both) {
  both = _mm256_set_m128(high, low);
}
QUEN_TARGET_AVX512 inline void Join(const Wide::HalfFloats& low, const Wide::HalfFloats& high, Wide::Floats& both) {
  both = _mm512_maskz_insertf32x8(kAllOfWide, _mm512_castps256_ps512(low), high, 1);
}
QUEN_TARGET_AVX2 inline void Join(const Narrow::HalfInts& low, const Narrow::HalfInts& high, Narrow::Ints& both) {
  both =
      reinterpret_cast<Narrow::Ints>(_mm256_set_m128i(reinterpret_cast<__m128i>(high), reinterpret_cast<__m128i>(low)));
}
QUEN_TARGET_AVX512 inline void Join(const Wide::HalfInts& low, const Wide::HalfInts& high, Wide::Ints& both) {
  both = reinterpret_cast<Wide::Ints>(_mm512_maskz_inserti32x8(
      kAllOfWide, _mm512_castsi256_si512(reinterpret_cast<__m256i>(low)), reinterpret_cast<__m256i>(high), 1));
}

/// And one becomes two.
template <typename Half, typename Whole>
QUEN_ALWAYS_INLINE void Split(const Whole& both, Half& low, Half& high) {
  static_assert(2 * sizeof(Half) == sizeof(Whole));
  std::memcpy(&low, &both, sizeof(low));
  std::memcpy(&high, reinterpret_cast<const char*>(&both) + sizeof(low), sizeof(high));
}

// --- Random words --------------------------------------------------------------------------------------------------

/// What the rounds add: the keys of all ten, and the part of the counter that a frame's blocks have in common.
struct Rounds {
  Rounds(const Stream& stream, Stage stage)
      : stage_word(StageWord(stage)),
        frame_low(LowWord(stream.frame_number)),
        frame_high(HighWord(stream.frame_number)) {
    for (std::uint32_t round = 0; round < kRounds; ++round) {
      first_key[round] = LowWord(stream.seed) + round * PHILOX_W32_0;
      second_key[round] = HighWord(stream.seed) + round * PHILOX_W32_1;
    }
  }

  static constexpr std::uint32_t kRounds = 10;
  std::uint32_t first_key[kRounds];
  std::uint32_t second_key[kRounds];
  std::uint64_t stage_word;
  std::uint64_t frame_low;
  std::uint64_t frame_high;
};

/// The low halves of both, in turn.
template <typename Words64, typename Words32>
QUEN_ALWAYS_INLINE void JoinLow(const Words64& even, const Words64& odd, Words32& both) {
  Words64 joined = (even & std::uint64_t{0xffffffffU}) | (odd << 32);
  both = reinterpret_cast<Words32>(joined);
}

/// The words of W blocks from `block` on, an element each.
///
/// Elements of even and of odd numbers go through the rounds side by side, each in the low half of 64 bits. What is in
/// the high halves does not matter: products take the low ones.
template <std::size_t W>
QUEN_ALWAYS_INLINE void DrawBlocks(const Rounds& rounds, std::uint32_t block,
                                   typename Vectors<W>::Words32 (&words)[4]) {
  using Words64 = typename Vectors<W>::Words64;
  using Words32 = typename Vectors<W>::Words32;
  const Words64 first_factor = Words64{} + std::uint64_t{PHILOX_M4x32_0};
  const Words64 second_factor = Words64{} + std::uint64_t{PHILOX_M4x32_1};
  Words64 even;
  for (std::size_t j = 0; j < W / 2; ++j) even[j] = 2 * j;
  even += block;
  Words64 c0[2] = {even, even + 1};
  const Words64 stage = Words64{} + rounds.stage_word;
  const Words64 frame_low = Words64{} + rounds.frame_low;
  const Words64 frame_high = Words64{} + rounds.frame_high;
  Words64 c1[2] = {stage, stage};
  Words64 c2[2] = {frame_low, frame_low};
  Words64 c3[2] = {frame_high, frame_high};
#pragma GCC unroll 10
  for (std::size_t round = 0; round < Rounds::kRounds; ++round) {
    Words32 first_key = Words32{} + rounds.first_key[round];
    Words32 second_key = Words32{} + rounds.second_key[round];
#pragma GCC unroll 2
    for (std::size_t odd = 0; odd < 2; ++odd) {
      Words64 first;
      Words64 second;
      Product(first_factor, c0[odd], first);
      Product(second_factor, c2[odd], second);
      c0[odd] = (second >> 32) ^ c1[odd] ^ reinterpret_cast<Words64>(first_key);
      c1[odd] = second;
      c2[odd] = (first >> 32) ^ c3[odd] ^ reinterpret_cast<Words64>(second_key);
      c3[odd] = first;
    }
  }
  JoinLow(c0[0], c0[1], words[0]);
  JoinLow(c1[0], c1[1], words[1]);
  JoinLow(c2[0], c2[1], words[2]);
  JoinLow(c3[0], c3[1], words[3]);
}

// --- Normal deviates -----------------------------------------------------------------------------------------------

/// As NormalsOf, for u of words outside the tail.
/// @return  a bit for each pair that is in the tail, and wrong
template <std::size_t W>
QUEN_ALWAYS_INLINE std::uint32_t NormalVectors(const typename Vectors<W>::Words32& radius,
                                               const typename Vectors<W>::Words32& direction,
                                               typename Vectors<W>::Floats& first,
                                               typename Vectors<W>::Floats& second) {
  using namespace normal;  // NOLINT(google-build-using-namespace): the constants
  using Floats = typename Vectors<W>::Floats;
  using Ints = typename Vectors<W>::Ints;
  const auto word = __builtin_convertvector(radius >> 1, Ints);
  Floats u = (__builtin_convertvector(word, Floats) + 0.5F) * 0x1p-31F;
  const Ints bits = reinterpret_cast<Ints>(u);
  const Ints exponent = (bits - kRootOfHalf) >> 23;
  Ints mantissa = bits - (exponent << 23);
  const Floats f = reinterpret_cast<Floats>(mantissa) - 1.0F;
  const Floats f2 = f * f;
  const Floats f4 = f2 * f2;
  const Floats low = (kLog[1] * f + kLog[0]) + (kLog[3] * f + kLog[2]) * f2;
  const Floats high = (kLog[5] * f + kLog[4]) + (kLog[7] * f + kLog[6]) * f2;
  const Floats series = low + (high + kLog[8] * f4) * f4;
  const Floats log = (f2 * (series * f - 0.5F) + f) + __builtin_convertvector(exponent, Floats) * kLn2;
  const Floats square = -2.0F * log;
  Floats r = square > 0.0F ? square : Floats{};
  SquareRoot(r);

  const Floats y = __builtin_convertvector(__builtin_convertvector(direction & 0x1fffffffU, Ints), Floats) * 0x1p-29F;
  const Floats y2 = y * y;
  const Floats sine = r * ((((kSine[3] * y2 + kSine[2]) * y2 + kSine[1]) * y2 + kSine[0]) * y);
  const Floats cosine = r * ((((kCosine[4] * y2 + kCosine[3]) * y2 + kCosine[2]) * y2 + kCosine[1]) * y2 + kCosine[0]);
  const auto swapped = __builtin_convertvector(direction << 2, Ints) < 0;
  Floats a = swapped ? sine : cosine;
  Floats b = swapped ? cosine : sine;
  Ints a_bits = reinterpret_cast<Ints>(a) ^ __builtin_convertvector(direction & 0x80000000U, Ints);
  Ints b_bits = reinterpret_cast<Ints>(b) ^ __builtin_convertvector(direction << 1 & 0x80000000U, Ints);
  first = reinterpret_cast<Floats>(a_bits);
  second = reinterpret_cast<Floats>(b_bits);
  return Below(word, static_cast<std::int32_t>(kTail));
}

// NOLINTEND(cppcoreguidelines-pro-type-reinterpret-cast,cppcoreguidelines-avoid-c-arrays,cppcoreguidelines-pro-type-member-init)

}  // namespace quen::detector
