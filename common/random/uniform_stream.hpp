#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <random>

#include "common/simd/level.hpp"

/// @file
/// A Mersenne Twister drawn from in bulk. Internal to the library; hosts have FillUniform (random.hpp).
///
/// The stream takes the state out of a std::mt19937, advances it 624 words at a time in loops that the compiler
/// vectorises, and puts it back. What it gives, and where it leaves the generator, is what the standard library's own
/// calls would have given and left.

namespace quen::common::random {

class UniformStream {
 public:
  /// Numbers that Take gives at the most.
  static constexpr std::size_t kMaxTake = 640;

  /// Elements behind the numbers given that may be read, though their values mean nothing.
  static constexpr std::size_t kSlack = 8;

  /// Takes over the generator's state. As long as the stream lives, the generator must not be used.
  /// @param draws  how many numbers will be drawn in all
  UniformStream(simd::Level level, std::mt19937& generator, std::size_t draws);

  /// Puts the state back. After all draws that were announced the generator has advanced by two outputs for each. After
  /// fewer, as when an exception ends the drawing, it may stand farther, by up to 1024 numbers: those made in advance.
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
  static constexpr std::size_t kCapacity = 1024;

  void Refill();
  void Outputs(std::uint32_t* out, std::size_t count);
  void Twist();

  simd::Level level_;
  std::mt19937& generator_;
  std::size_t undrawn_;    // numbers not yet made from the state
  std::size_t position_;   // of the next word of the state
  std::size_t begin_ = 0;  // numbers made and not yet taken: [begin_, end_)
  std::size_t end_ = 0;
  alignas(64) std::array<std::uint32_t, kWords> state_{};
  alignas(64) std::array<std::uint32_t, 2 * kCapacity> outputs_{};
  alignas(64) std::array<double, kCapacity + kSlack> numbers_{};
};

}  // namespace quen::common::random
