#pragma once

#include <Random123/philox.h>

#include <array>
#include <cstdint>

/// @file
/// Random numbers by counter: Philox4x32-10 (J. K. Salmon, M. A. Moraes, R. O. Dror and D. E. Shaw, "Parallel random
/// numbers: as easy as 1, 2, 3", 2011), as Random123 has it.
///
///     key      the seed
///     counter  a block of pixels or one pixel; the stage, and a draw's number; the frame's number (two words)

namespace quen::detector {

/// Who draws. The number is part of the counter: it may not change.
enum class Stage : std::uint32_t {
  kPhoton = 1,
  kPhotonMore = 2,  ///< a pixel's further bits, where the first ones do not decide
  kMultiplication = 3,
  kRead = 4,
  kReadMore = 5,
  kFlatMap = 6,
  kHotPixels = 7,
};

/// What all draws of a frame have in common.
struct Stream {
  std::uint64_t seed;
  std::uint64_t frame_number;
};

using Words = std::array<std::uint32_t, 4>;

constexpr std::uint32_t LowWord(std::uint64_t value) { return static_cast<std::uint32_t>(value); }
constexpr std::uint32_t HighWord(std::uint64_t value) { return static_cast<std::uint32_t>(value >> 32); }

/// The counter's second word.
constexpr std::uint32_t StageWord(Stage stage, std::uint32_t draw = 0) {
  return static_cast<std::uint32_t>(stage) | draw << 4;
}

/// Four words of 32 bits.
/// @param block  of pixels, or one pixel, as the stage has it
/// @param draw   below 2²⁸
inline Words Draw(const Stream& stream, Stage stage, std::uint32_t block, std::uint32_t draw = 0) {
  const r123::Philox4x32::ctr_type counter = {
      {block, StageWord(stage, draw), LowWord(stream.frame_number), HighWord(stream.frame_number)}};
  const r123::Philox4x32::key_type key = {{LowWord(stream.seed), HighWord(stream.seed)}};
  const r123::Philox4x32::ctr_type words = r123::Philox4x32()(counter, key);
  return {words[0], words[1], words[2], words[3]};
}

}  // namespace quen::detector
