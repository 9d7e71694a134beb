#pragma once

#include <array>

/// @file
/// Instruction-set levels, for code that exists in several compiled forms. Internal to the library.
///
/// Every form of a piece of code gives the same bits. The plain one reads like the formula and runs anywhere; the
/// others are one source, written as loops that the compiler vectorises, compiled once per level and chosen at run
/// time.

namespace quen::common::simd {

enum class Level {
  kPlain,   ///< the formula itself
  kAvx2,    ///< AVX2 and FMA: four doubles at a time
  kAvx512,  ///< AVX-512 F, DQ, VL, BW: eight doubles at a time
};

inline constexpr std::array<Level, 3> kLevels = {Level::kPlain, Level::kAvx2, Level::kAvx512};

/// Whether this processor (and operating system) can run a level.
bool IsAvailable(Level level);

/// The highest level that this processor can run. The same throughout the process.
Level Best();

/// "plain", "avx2" or "avx512".
const char* Name(Level level);

}  // namespace quen::common::simd

// How a function is compiled for a level. Its code is in always-inlined functions, which take on the caller's level.
#define QUEN_TARGET_AVX2 __attribute__((target("avx2,fma")))
#ifdef __clang__
#define QUEN_TARGET_AVX512 __attribute__((target("avx2,fma,avx512f,avx512dq,avx512vl,avx512bw"), min_vector_width(512)))
#else
#define QUEN_TARGET_AVX512 \
  __attribute__((target("avx2,fma,avx512f,avx512dq,avx512vl,avx512bw,prefer-vector-width=512")))
#endif
#define QUEN_ALWAYS_INLINE inline __attribute__((always_inline))
