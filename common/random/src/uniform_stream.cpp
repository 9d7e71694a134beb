#include "common/random/uniform_stream.hpp"

#include <algorithm>
#include <bit>
#include <cstring>
#include <type_traits>

// Three steps, each a plain loop that vectorises:
//
//   twist    the recurrence of the Mersenne Twister over all 624 words (Matsumoto and Nishimura, "Mersenne Twister",
//            ACM TOMACS 8, 3 (1998)),
//   temper   a word of the state into an output,
//   convert  two outputs a, b into the canonical value.
//
// The standard library's canonical value is fl(a + b · 2³²) / 2⁶⁴, clamped below 1: the sum of two exact products, with
// one rounding, and an exact division. Here b · 2³² and a are made as doubles exactly, from their bits and the exponent
// of 2⁸⁴ and 2⁵², and added with one rounding: the same bits. The state is the standard library's too: its layout is
// pinned below and compared with the generator's public text in the tests.

namespace quen::common::random {
namespace {

using simd::Level;

constexpr std::size_t kWords = std::mt19937::state_size;
constexpr std::size_t kShift = std::mt19937::shift_size;
constexpr std::uint32_t kUpperMask = ~std::uint32_t{0} << std::mt19937::mask_bits;
constexpr auto kMatrix = static_cast<std::uint32_t>(std::mt19937::xor_mask);

/// What a std::mt19937 of this standard library is made of.
struct GeneratorLayout {
  std::array<std::uint_fast32_t, kWords> words;
  std::size_t position;
};
static_assert(std::is_trivially_copyable_v<std::mt19937> && sizeof(std::mt19937) == sizeof(GeneratorLayout));

QUEN_ALWAYS_INLINE std::uint32_t Twisted(std::uint32_t word, std::uint32_t next, std::uint32_t shifted) {
  const std::uint32_t y = (word & kUpperMask) | (next & ~kUpperMask);
  return shifted ^ (y >> 1U) ^ ((y & 1U) * kMatrix);
}

QUEN_ALWAYS_INLINE void TwistAll(std::uint32_t* state) {
  for (std::size_t k = 0; k < kWords - kShift; ++k) state[k] = Twisted(state[k], state[k + 1], state[k + kShift]);
  for (std::size_t k = kWords - kShift; k < kWords - 1; ++k) {
    state[k] = Twisted(state[k], state[k + 1], state[k + kShift - kWords]);
  }
  state[kWords - 1] = Twisted(state[kWords - 1], state[0], state[kShift - 1]);
}

QUEN_ALWAYS_INLINE void TemperAll(const std::uint32_t* __restrict words, std::uint32_t* __restrict out,
                                  std::size_t count) {
  for (std::size_t k = 0; k < count; ++k) {
    std::uint32_t z = words[k];
    z ^= z >> 11U;
    z ^= (z << 7U) & 0x9d2c5680U;
    z ^= (z << 15U) & 0xefc60000U;
    z ^= z >> 18U;
    out[k] = z;
  }
}

QUEN_ALWAYS_INLINE void ConvertAll(const std::uint32_t* __restrict outputs, double* __restrict numbers,
                                   std::size_t count) {
  constexpr std::uint64_t kExponent52 = 0x4330000000000000U;
  constexpr std::uint64_t kExponent84 = 0x4530000000000000U;
  constexpr double kBelowOne = 0x1.fffffffffffffp-1;
  for (std::size_t k = 0; k < count; ++k) {
    std::uint64_t both = 0;
    std::memcpy(&both, outputs + 2 * k, sizeof(both));  // a + b · 2³², the machine being little-endian
    const double a = std::bit_cast<double>((both & 0xffffffffU) | kExponent52) - 0x1p52;
    const double b = std::bit_cast<double>((both >> 32U) | kExponent84) - 0x1p84;
    const double canonical = (a + b) * 0x1p-64;
    numbers[k] = canonical < 1.0 ? canonical : kBelowOne;
  }
}
static_assert(std::endian::native == std::endian::little);

// The three steps at each level, the plain one compiled for any x86-64 processor.

using TwistFunction = void (*)(std::uint32_t*);
using TemperFunction = void (*)(const std::uint32_t*, std::uint32_t*, std::size_t);
using ConvertFunction = void (*)(const std::uint32_t*, double*, std::size_t);

struct Kernels {
  TwistFunction twist;
  TemperFunction temper;
  ConvertFunction convert;
};

void TwistBaseline(std::uint32_t* state) { TwistAll(state); }
QUEN_TARGET_AVX2 void TwistAvx2(std::uint32_t* state) { TwistAll(state); }
QUEN_TARGET_AVX512 void TwistAvx512(std::uint32_t* state) { TwistAll(state); }

void TemperBaseline(const std::uint32_t* words, std::uint32_t* out, std::size_t count) { TemperAll(words, out, count); }
QUEN_TARGET_AVX2 void TemperAvx2(const std::uint32_t* words, std::uint32_t* out, std::size_t count) {
  TemperAll(words, out, count);
}
QUEN_TARGET_AVX512 void TemperAvx512(const std::uint32_t* words, std::uint32_t* out, std::size_t count) {
  TemperAll(words, out, count);
}

void ConvertBaseline(const std::uint32_t* outputs, double* numbers, std::size_t count) {
  ConvertAll(outputs, numbers, count);
}
QUEN_TARGET_AVX2 void ConvertAvx2(const std::uint32_t* outputs, double* numbers, std::size_t count) {
  ConvertAll(outputs, numbers, count);
}
QUEN_TARGET_AVX512 void ConvertAvx512(const std::uint32_t* outputs, double* numbers, std::size_t count) {
  ConvertAll(outputs, numbers, count);
}

const Kernels& KernelsOf(Level level) {
  static constexpr Kernels kBaseline = {TwistBaseline, TemperBaseline, ConvertBaseline};
  static constexpr Kernels kAvx2 = {TwistAvx2, TemperAvx2, ConvertAvx2};
  static constexpr Kernels kAvx512 = {TwistAvx512, TemperAvx512, ConvertAvx512};
  return level == Level::kAvx512 ? kAvx512 : level == Level::kAvx2 ? kAvx2 : kBaseline;
}

}  // namespace

UniformStream::UniformStream(Level level, std::mt19937& generator, std::size_t draws)
    : level_(level), generator_(generator), undrawn_(draws) {
  const auto layout = std::bit_cast<GeneratorLayout>(generator);
  std::ranges::transform(layout.words, state_.begin(),
                         [](std::uint_fast32_t word) { return static_cast<std::uint32_t>(word); });
  position_ = layout.position;
}

const double* UniformStream::Take(std::size_t count) {
  if (end_ - begin_ < count) Refill();
  const double* const numbers = numbers_.data() + begin_;
  begin_ += count;
  return numbers;
}

void UniformStream::Skip(std::size_t count) {
  const std::size_t made = std::min(count, end_ - begin_);
  begin_ += made;
  undrawn_ -= count - made;
  for (std::size_t words = 2 * (count - made); words > 0;) {
    if (position_ == kWords) Twist();
    const std::size_t step = std::min(words, kWords - position_);
    position_ += step;
    words -= step;
  }
}

UniformStream::~UniformStream() {
  GeneratorLayout layout{};
  std::ranges::copy(state_, layout.words.begin());
  layout.position = position_;
  generator_ = std::bit_cast<std::mt19937>(layout);
}

/// Moves what is left to the front and makes as many numbers as fit and will be drawn.
void UniformStream::Refill() {
  const std::size_t left = end_ - begin_;
  std::copy(numbers_.begin() + static_cast<std::ptrdiff_t>(begin_),
            numbers_.begin() + static_cast<std::ptrdiff_t>(end_), numbers_.begin());
  const std::size_t count = std::min(kCapacity - left, undrawn_);
  Outputs(outputs_.data(), 2 * count);
  KernelsOf(level_).convert(outputs_.data(), numbers_.data() + left, count);
  begin_ = 0;
  end_ = left + count;
  undrawn_ -= count;
}

void UniformStream::Outputs(std::uint32_t* out, std::size_t count) {
  while (count > 0) {
    if (position_ == kWords) Twist();
    const std::size_t step = std::min(count, kWords - position_);
    KernelsOf(level_).temper(state_.data() + position_, out, step);
    position_ += step;
    out += step;
    count -= step;
  }
}

void UniformStream::Twist() {
  KernelsOf(level_).twist(state_.data());
  position_ = 0;
}

}  // namespace quen::common::random
