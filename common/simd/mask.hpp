#pragma once

#include <immintrin.h>

#include <cstdint>

#include "common/simd/level.hpp"

/// @file
/// The masks of AVX-512, a bit for each element, as numbers. Internal to the library.
///
/// By the instruction itself: left to the compiler, g++ 12 may widen a mask on the stack, where it stores 8 or 16 bits
/// and then reads 32.

namespace quen::common::simd {

QUEN_TARGET_AVX512 inline std::uint32_t Bits(__mmask8 mask) {
  std::uint32_t bits;                            // NOLINT(cppcoreguidelines-init-variables): written by the instruction
  asm("kmovb %1, %0" : "=r"(bits) : "k"(mask));  // NOLINT(hicpp-no-assembler)
  return bits;
}
QUEN_TARGET_AVX512 inline std::uint32_t Bits(__mmask16 mask) {
  std::uint32_t bits;                            // NOLINT(cppcoreguidelines-init-variables): written by the instruction
  asm("kmovw %1, %0" : "=r"(bits) : "k"(mask));  // NOLINT(hicpp-no-assembler)
  return bits;
}

}  // namespace quen::common::simd
