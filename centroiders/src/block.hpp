#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "common/simd/fused.hpp"
#include "common/simd/level.hpp"

/// @file
/// Eight pixels at a time, for the kernels above the plain level. Vectors go by reference: functions that are compiled
/// for any processor must not take or return them.

namespace quen::centroiders {

inline constexpr std::size_t kBlock = 8;  ///< pixels

/// A number of columns, rounded up to whole blocks.
inline std::size_t WholeBlocks(std::size_t count) { return (count + kBlock - 1) / kBlock * kBlock; }

using Ints __attribute__((vector_size(4 * kBlock))) = std::int32_t;

inline constexpr Ints kIota = {0, 1, 2, 3, 4, 5, 6, 7};

/// Element by element, here and below: GCC 12 widens elements of an array in one step, and those of a vector in halves.
QUEN_ALWAYS_INLINE void LoadBlock(const std::int16_t* first, Ints& pixels) {
  std::array<std::int32_t, kBlock> wide;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled at once
  for (std::size_t lane = 0; lane < kBlock; ++lane) wide[lane] = first[lane];
  std::memcpy(&pixels, &wide, sizeof(pixels));
}

/// Eight pixels, or as many as the rectangle has columns, and zeros.
QUEN_ALWAYS_INLINE void LoadColumns(const std::int16_t* first, std::size_t columns, Ints& pixels) {
  if (columns >= kBlock) {
    LoadBlock(first, pixels);
    return;
  }
  std::array<std::int16_t, kBlock> padded{};
  std::copy_n(first, columns, padded.data());
  LoadBlock(padded.data(), pixels);
}

QUEN_ALWAYS_INLINE std::array<double, kBlock> Widened(const Ints& pixels) {
  std::array<double, kBlock> wide;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled at once
  for (std::size_t lane = 0; lane < kBlock; ++lane) wide[lane] = pixels[lane];
  return wide;
}

QUEN_ALWAYS_INLINE std::int64_t Total(const Ints& lanes) {
  std::int64_t total = 0;
  for (std::size_t lane = 0; lane < kBlock; ++lane) total += lanes[lane];
  return total;
}

/// Eight doubles in two vectors, for AVX2.
struct Avx2Block {
  using Half __attribute__((vector_size(4 * sizeof(double)))) = double;

  Avx2Block() = default;
  QUEN_ALWAYS_INLINE explicit Avx2Block(double value) : low(Half{} + value), high(Half{} + value) {}
  QUEN_ALWAYS_INLINE explicit Avx2Block(const Ints& ints) : Avx2Block(Widened(ints).data()) {}
  /// Each half by itself: GCC 12 copies both through memory, in pieces that the processor waits for.
  QUEN_ALWAYS_INLINE explicit Avx2Block(const double* values) {
    std::memcpy(&low, values, sizeof(low));
    std::memcpy(&high, values + kBlock / 2, sizeof(high));
  }

  /// first · growth^(0 … 7), where second and fourth are powers of growth
  QUEN_ALWAYS_INLINE void SetPowers(double first, double growth, double second, double fourth) {
    low = Half{first, first * growth, first * second, first * growth * second};
    high = low * fourth;
  }
  /// first + (0 … 7)
  QUEN_ALWAYS_INLINE void SetSteps(double first) {
    low = Half{0.0, 1.0, 2.0, 3.0} + first;
    high = Half{4.0, 5.0, 6.0, 7.0} + first;
  }
  QUEN_ALWAYS_INLINE void Store(double* values) const {
    std::memcpy(values, &low, sizeof(low));
    std::memcpy(values + kBlock / 2, &high, sizeof(high));
  }
  QUEN_ALWAYS_INLINE void Add(const Avx2Block& other) {
    low += other.low;
    high += other.high;
  }
  QUEN_ALWAYS_INLINE void Multiply(const Avx2Block& other) {
    low *= other.low;
    high *= other.high;
  }
  QUEN_ALWAYS_INLINE void AddProduct(const Avx2Block& other, double factor) {
    common::simd::AddProduct(low, other.low, factor);
    common::simd::AddProduct(high, other.high, factor);
  }
  QUEN_ALWAYS_INLINE void AddProduct(const Avx2Block& other, const Avx2Block& factors) {
    common::simd::AddProduct(low, other.low, factors.low);
    common::simd::AddProduct(high, other.high, factors.high);
  }
  /// Leaves the first `count` elements, and zeros behind them.
  QUEN_ALWAYS_INLINE void KeepFirst(std::int64_t count) {
    using Places __attribute__((vector_size(4 * sizeof(std::int64_t)))) = std::int64_t;
    low = Places{0, 1, 2, 3} < count ? low : Half{};
    high = Places{4, 5, 6, 7} < count ? high : Half{};
  }
  [[nodiscard]] QUEN_ALWAYS_INLINE double Total() const {
    const Half sum = low + high;
    return (sum[0] + sum[1]) + (sum[2] + sum[3]);
  }

  Half low = {};
  Half high = {};
};

/// Eight doubles in one vector, for AVX-512.
struct Avx512Block {
  using Whole __attribute__((vector_size(8 * sizeof(double)))) = double;

  Avx512Block() = default;
  QUEN_ALWAYS_INLINE explicit Avx512Block(double value) : all(Whole{} + value) {}
  QUEN_ALWAYS_INLINE explicit Avx512Block(const Ints& ints) : Avx512Block(Widened(ints).data()) {}
  QUEN_ALWAYS_INLINE explicit Avx512Block(const double* values) { std::memcpy(this, values, kBlock * sizeof(double)); }

  QUEN_ALWAYS_INLINE void SetPowers(double first, double growth, double second, double fourth) {
    const Whole fours = {1.0, 1.0, 1.0, 1.0, fourth, fourth, fourth, fourth};
    const double third = first * growth * second;
    all = Whole{first, first * growth, first * second, third, first, first * growth, first * second, third} * fours;
  }
  QUEN_ALWAYS_INLINE void SetSteps(double first) { all = Whole{0.0, 1.0, 2.0, 3.0, 4.0, 5.0, 6.0, 7.0} + first; }
  QUEN_ALWAYS_INLINE void Store(double* values) const { std::memcpy(values, &all, sizeof(all)); }
  QUEN_ALWAYS_INLINE void Add(const Avx512Block& other) { all += other.all; }
  QUEN_ALWAYS_INLINE void Multiply(const Avx512Block& other) { all *= other.all; }
  QUEN_ALWAYS_INLINE void AddProduct(const Avx512Block& other, double factor) {
    common::simd::AddProduct(all, other.all, factor);
  }
  QUEN_ALWAYS_INLINE void AddProduct(const Avx512Block& other, const Avx512Block& factors) {
    common::simd::AddProduct(all, other.all, factors.all);
  }
  /// Leaves the first `count` elements, and zeros behind them.
  QUEN_ALWAYS_INLINE void KeepFirst(std::int64_t count) {
    using Places __attribute__((vector_size(8 * sizeof(std::int64_t)))) = std::int64_t;
    all = Places{0, 1, 2, 3, 4, 5, 6, 7} < count ? all : Whole{};
  }
  /// As Avx2Block does, which adds the halves with one instruction: GCC 12 takes elements of a whole one by one.
  [[nodiscard]] QUEN_ALWAYS_INLINE double Total() const {
    std::array<double, kBlock> values;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled at once
    Store(values.data());
    return Avx2Block(values.data()).Total();
  }

  Whole all = {};
};

}  // namespace quen::centroiders
