#include "common/random/uniform_stream.hpp"

#include <immintrin.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <type_traits>

#include "common/simd/vector_memory.hpp"

// Two steps, in vectors of W numbers, each made from two words (an extension that GCC and Clang share; an operator
// works on each element):
//
//   twist    the recurrence of the Mersenne Twister over all 624 words (Matsumoto and Nishimura, "Mersenne Twister",
//            ACM TOMACS 8, 3 (1998)): one state makes the next,
//   convert  tempers two words into outputs a, b, and these into the canonical value.
//
// The standard library's canonical value is fl(a + b · 2³²) / 2⁶⁴, clamped below 1: the sum of two exact products, with
// one rounding, and an exact division. A 64-bit integer a + b · 2³² converted to double has the same single rounding,
// and so has the sum of a · 2⁻⁶⁴ and b · 2⁻³²: the bits are the same. The state is the standard library's too: its
// layout is pinned below and compared with the generator's public text in the tests.
//
// A state is made into a second block, not in place: whole vectors then read words that are still there, and nothing is
// left over at the end of either part of the recurrence. The first words of the new state stand behind the old one as
// well, where the recurrence, and a number whose two words come from both states, look for them.

namespace quen::common::random {
namespace {

using simd::Level;
using simd::Load;
using simd::Store;

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
static_assert(std::endian::native ==
              std::endian::little);  // two words are a 64-bit integer, the first one its low half

/// Vectors of W numbers, and of the words that they are made from.
template <std::size_t W>
struct Vectors {
  using Words __attribute__((vector_size(8 * W))) = std::uint32_t;
  using Pairs __attribute__((vector_size(8 * W))) = std::uint64_t;
  using Doubles __attribute__((vector_size(8 * W))) = double;
};

// Vectors are reinterpreted bit by bit.
// NOLINTBEGIN(cppcoreguidelines-pro-type-reinterpret-cast)

/// Words [first, last) of the next state; `shifted` points to the word that lies kShift after the old state's first.
template <std::size_t W>
QUEN_ALWAYS_INLINE void TwistPart(const std::uint32_t* old, const std::uint32_t* shifted, std::uint32_t* made,
                                  std::size_t first, std::size_t last) {
  using Words = typename Vectors<W>::Words;
  for (std::size_t k = first; k < last; k += 2 * W) {
    Words word;
    Words next;
    Words from;
    Load(word, old + k);
    Load(next, old + k + 1);
    Load(from, shifted + k);
    const Words y = (word & kUpperMask) | (next & ~kUpperMask);
    const Words of_odd = (y & 1U) != 0U ? Words{} + kMatrix : Words{};
    Store(from ^ (y >> 1U) ^ of_odd, made + k);
  }
}

/// Makes the next state from an old one. Writes the first `ahead` of its words behind the old one's, too.
template <std::size_t W>
QUEN_ALWAYS_INLINE void TwistAll(std::uint32_t* old, std::uint32_t* made, std::size_t ahead) {
  // Up to kFromOld the word shifted by kShift stands in the old state, or just behind it.
  constexpr std::size_t kFromOld = (kWords - kShift + 15) / 16 * 16;
  TwistPart<W>(old, old + kShift, made, 0, ahead);
  std::memcpy(old + kWords, made, ahead * sizeof(*made));
  TwistPart<W>(old, old + kShift, made, ahead, kFromOld);
  TwistPart<W>(old, made - (kWords - kShift), made, kFromOld, kWords);
}

/// Takes 1 down to the double below it, as the standard library does. Spelt out: GCC makes two or
/// three instructions of a comparison and a choice.
constexpr double kBelowOne = 0x1.fffffffffffffp-1;
inline void Clamp(Vectors<2>::Doubles& value) { value = _mm_min_pd(value, _mm_set1_pd(kBelowOne)); }
QUEN_TARGET_AVX2 inline void Clamp(Vectors<4>::Doubles& value) {
  value = _mm256_min_pd(value, _mm256_set1_pd(kBelowOne));
}
QUEN_TARGET_AVX512 inline void Clamp(Vectors<8>::Doubles& value) {
  value = _mm512_maskz_min_pd(0xff, value, _mm512_set1_pd(kBelowOne));
}

/// The sum a · 2⁻⁶⁴ + b · 2⁻³² as a double, with one rounding.
template <std::size_t W>
QUEN_ALWAYS_INLINE void ToDouble(const typename Vectors<W>::Pairs& both, typename Vectors<W>::Doubles& sum) {
  using Doubles = typename Vectors<W>::Doubles;
  if constexpr (W == 8) {
    sum = __builtin_convertvector(both, Doubles) * 0x1p-64;  // one instruction, and an exact product
  } else {
    // 2⁻¹² + a · 2⁻⁶⁴ and 2²⁰ + b · 2⁻³² from their bits; all but the last sum is exact.
    constexpr auto kAbove = std::bit_cast<std::uint64_t>(0x1p-12);
    constexpr auto kFarAbove = std::bit_cast<std::uint64_t>(0x1p20);
    const auto a = reinterpret_cast<Doubles>((both & 0xffffffffU) | kAbove);
    const auto b = reinterpret_cast<Doubles>((both >> 32U) | kFarAbove);
    sum = (b - (0x1p20 + 0x1p-12)) + a;
  }
}

/// Makes `count` numbers from twice as many words. Works in whole vectors: reads and writes beyond the last.
template <std::size_t W>
QUEN_ALWAYS_INLINE void ConvertAll(const std::uint32_t* words, double* numbers, std::size_t count) {
  using Words = typename Vectors<W>::Words;
  using Pairs = typename Vectors<W>::Pairs;
  using Doubles = typename Vectors<W>::Doubles;
  for (std::size_t k = 0; k < count; k += W) {
    Words z;
    Load(z, words + 2 * k);
    z ^= z >> 11U;
    z ^= (z << 7U) & 0x9d2c5680U;
    z ^= (z << 15U) & 0xefc60000U;
    z ^= z >> 18U;
    Doubles canonical;
    ToDouble<W>(reinterpret_cast<Pairs>(z), canonical);
    Clamp(canonical);
    Store(canonical, numbers + k);
  }
}

// NOLINTEND(cppcoreguidelines-pro-type-reinterpret-cast)

// Both steps at each level, the plain one compiled for any x86-64 processor.

using TwistFunction = void (*)(std::uint32_t*, std::uint32_t*, std::size_t);
using ConvertFunction = void (*)(const std::uint32_t*, double*, std::size_t);

struct Kernels {
  TwistFunction twist;
  ConvertFunction convert;
};

void TwistBaseline(std::uint32_t* old, std::uint32_t* made, std::size_t ahead) { TwistAll<2>(old, made, ahead); }
QUEN_TARGET_AVX2 void TwistAvx2(std::uint32_t* old, std::uint32_t* made, std::size_t ahead) {
  TwistAll<4>(old, made, ahead);
}
QUEN_TARGET_AVX512 void TwistAvx512(std::uint32_t* old, std::uint32_t* made, std::size_t ahead) {
  TwistAll<8>(old, made, ahead);
}

void ConvertBaseline(const std::uint32_t* words, double* numbers, std::size_t count) {
  ConvertAll<2>(words, numbers, count);
}
QUEN_TARGET_AVX2 void ConvertAvx2(const std::uint32_t* words, double* numbers, std::size_t count) {
  ConvertAll<4>(words, numbers, count);
}
QUEN_TARGET_AVX512 void ConvertAvx512(const std::uint32_t* words, double* numbers, std::size_t count) {
  ConvertAll<8>(words, numbers, count);
}

const Kernels& KernelsOf(Level level) {
  static constexpr Kernels kBaseline = {TwistBaseline, ConvertBaseline};
  static constexpr Kernels kAvx2 = {TwistAvx2, ConvertAvx2};
  static constexpr Kernels kAvx512 = {TwistAvx512, ConvertAvx512};
  return *simd::Pick(level, &kBaseline, &kAvx2, &kAvx512);
}

}  // namespace

UniformStream::UniformStream(Level level, std::mt19937& generator) : level_(level), generator_(generator) {
  const auto layout = std::bit_cast<GeneratorLayout>(generator);
  std::ranges::transform(layout.words, blocks_[now_].words.begin(),
                         [](std::uint_fast32_t word) { return static_cast<std::uint32_t>(word); });
  position_ = layout.position;
}

const double* UniformStream::Take(std::size_t count) {
  const ConvertFunction convert = KernelsOf(level_).convert;
  for (std::size_t made = 0; made < count;) {
    const std::uint32_t* const words = &blocks_[now_].words[position_];
    const std::size_t pairs = std::min((kWords - position_) / 2, count - made);
    convert(words, &numbers_[made], pairs);
    made += pairs;
    position_ += 2 * pairs;
    if (made == count) break;
    const std::uint32_t* const last = &blocks_[now_].words[position_];
    const std::size_t straddling = kWords - position_;  // 1 where the last word's partner is in the next state
    Twist();
    convert(last, &numbers_[made], straddling);
    made += straddling;
    position_ = straddling;
  }
  return numbers_.data();
}

void UniformStream::Skip(std::size_t count) {
  position_ += 2 * count;
  for (; position_ > kWords; position_ -= kWords) Twist();
}

UniformStream::~UniformStream() {
  GeneratorLayout layout{};
  std::copy_n(blocks_[now_].words.begin(), kWords, layout.words.begin());
  layout.position = position_;
  generator_ = std::bit_cast<std::mt19937>(layout);
}

void UniformStream::Twist() {
  Block& next = blocks_[1 - now_];
  KernelsOf(level_).twist(blocks_[now_].words.data(), next.words.data(), kAhead);
  now_ = 1 - now_;
}

}  // namespace quen::common::random
