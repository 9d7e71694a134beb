#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <random>

#include "common/simd/level.hpp"

/// @file
/// A Mersenne Twister drawn from in bulk. Internal to the library; hosts have FillUniform (random.hpp).
///
/// The stream takes the state out of a std::mt19937, advances it 624 words at a time in vectors, and puts it back. What
/// it gives, and where it leaves the generator, is what the standard library's own calls would have given and left.

namespace quen::common::random {

class UniformStream {
 public:
  /// Numbers that Take gives at the most.
  static constexpr std::size_t kMaxTake = 640;

  /// Elements behind the numbers given that may be read, though their values mean nothing.
  static constexpr std::size_t kSlack = 8;

  /// Takes over the generator's state. As long as the stream lives, the generator must not be used.
  UniformStream(simd::Level level, std::mt19937& generator);

  /// Puts the state back: the generator has advanced by two outputs for each number taken or skipped.
  ~UniformStream();

  UniformStream(const UniformStream&) = delete;
  UniformStream& operator=(const UniformStream&) = delete;
  UniformStream(UniformStream&&) = delete;
  UniformStream& operator=(UniformStream&&) = delete;

  /// The next `count` ≤ kMaxTake numbers, each the canonical value in [0, 1) that
  /// std::generate_canonical<double, 53> gives from two outputs of the generator. They stay until the next call.
  const double* Take(std::size_t count);

  /// Drops the next `count` numbers: cheaper than taking them.
  void Skip(std::size_t count);

 private:
  static constexpr std::size_t kWords = std::mt19937::state_size;
  static constexpr std::size_t kAhead = 16;

  /// The words of a state, and behind them the first few of the state that follows, once that is made.
  struct Block {
    alignas(64) std::array<std::uint32_t, kWords + kAhead> words{};
  };

  void Twist();

  simd::Level level_;
  std::mt19937& generator_;
  std::size_t position_;  // of the next word of the state
  std::size_t now_ = 0;   // which block is the state; the other one was before it
  std::array<Block, 2> blocks_{};
  alignas(64) std::array<double, kMaxTake + kSlack> numbers_{};
};

}  // namespace quen::common::random
