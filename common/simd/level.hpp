#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "defs/export.hpp"

/// @file
/// Instruction-set levels, for code that exists in several compiled forms. Internal to the library.
///
/// Every form of a piece of code gives the same bits, or says where it does not. The plain one reads like the formula
/// and runs anywhere; the others are one source, written as loops that the compiler vectorises, compiled once per level
/// and chosen at run time: Pick(level, Plain, Avx2, Avx512)(arguments).

namespace quen::common::simd {

enum class Level {
  kPlain,   ///< the formula itself
  kAvx2,    ///< AVX2 and FMA: four doubles at a time
  kAvx512,  ///< AVX-512 F, DQ, VL, BW: eight doubles at a time
};

inline constexpr std::array<Level, 3> kLevels = {Level::kPlain, Level::kAvx2, Level::kAvx512};

/// "plain", "avx2" or "avx512".
constexpr const char* Name(Level level) {
  constexpr std::array<const char*, 3> kNames = {"plain", "avx2", "avx512"};
  return kNames.at(static_cast<std::size_t>(level));
}

/// Whether this processor (and operating system) can run a level.
bool IsAvailable(Level level);

/// The highest level that this processor can run.
Level Highest();

/// The level that this process runs: the highest one that the processor has, or the one that the environment variable
/// QUEN_SIMD names. Decided by the first call, which warns in the log if the variable names no level that there is.
///
/// Exported so that a process has one decision, whichever of the libraries it is in: the one loaded first serves all.
QUEN_EXPORT Level Best();

/// A level, and what there is to warn of.
struct Choice {
  Level level;
  std::string warning;  ///< empty if there is nothing
};

/// What Best decides.
/// @param wish     a level's name; empty for none
/// @param highest  that the processor has
Choice Choose(std::string_view wish, Level highest);

/// The form for a level, of a function or of what else there is one of for each level.
template <typename Form>
constexpr Form Pick(Level level, Form plain, Form avx2, Form avx512) {
  return level == Level::kAvx512 ? avx512 : level == Level::kAvx2 ? avx2 : plain;
}

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
