#include <bit>

#include "common/simd/vector_memory.hpp"
#include "detector/src/exposure.hpp"
#include "detector/src/normal.hpp"
#include "detector/src/vectors.hpp"

// The fast form adds the same deviates (vectors.hpp), those of a block's two pairs to pixels 16 apart. A pair that
// needs further bits is made by the plain form: one in a million.

namespace quen::detector {
namespace {

using common::simd::Level;
using common::simd::Load;
using common::simd::Store;

void AddReadNoisePlain(const Stream& stream, std::size_t first, double rms, double* electrons) {
  for (std::size_t k = 0; k < kChunk; ++k) {
    electrons[k] += rms * ReadDeviate(stream, static_cast<std::uint32_t>(first + k));
  }
}

// NOLINTBEGIN(cppcoreguidelines-avoid-c-arrays): vectors of words, as DrawBlocks gives them.

template <std::size_t W>
QUEN_ALWAYS_INLINE void AddDeviates(const Stream& stream, std::size_t pixel, double rms, std::uint32_t in_tail,
                                    typename Vectors<W>::Floats& deviates, double* electrons) {
  using V = Vectors<W>;
  for (; in_tail != 0; in_tail &= in_tail - 1) {
    const auto lane = static_cast<std::size_t>(std::countr_zero(in_tail));
    deviates[lane] = static_cast<float>(ReadDeviate(stream, static_cast<std::uint32_t>(pixel + lane)));
  }
  typename V::HalfFloats halves[2];
  Split(deviates, halves[0], halves[1]);
  for (std::size_t half = 0; half < 2; ++half) {
    typename V::Doubles sum;
    Load(sum, electrons + half * W / 2);
    sum += rms * __builtin_convertvector(halves[half], typename V::Doubles);
    Store(sum, electrons + half * W / 2);
  }
}

template <std::size_t W>
QUEN_ALWAYS_INLINE void AddToChunk(const Stream& stream, std::size_t first, double rms, double* electrons) {
  using V = Vectors<W>;
  const Rounds rounds(stream, Stage::kRead);
  for (std::size_t group = 0; group < kChunk; group += 64) {
    for (std::size_t lane = 0; lane < 16; lane += W) {
      typename V::Words32 words[4];
      DrawBlocks<W>(rounds, static_cast<std::uint32_t>((first + group) / 4 + lane), words);
      for (std::size_t pair = 0; pair < 2; ++pair) {
        typename V::Floats deviates;
        typename V::Floats others;
        const std::uint32_t in_tail = NormalVectors<W>(words[2 * pair], words[2 * pair + 1], deviates, others);
        const std::size_t offset = group + 32 * pair + lane;
        AddDeviates<W>(stream, first + offset, rms, in_tail, deviates, electrons + offset);
        AddDeviates<W>(stream, first + offset + 16, rms, in_tail, others, electrons + offset + 16);
      }
    }
  }
}

// NOLINTEND(cppcoreguidelines-avoid-c-arrays)

QUEN_TARGET_AVX2 void AddReadNoiseAvx2(const Stream& stream, std::size_t first, double rms, double* electrons) {
  AddToChunk<8>(stream, first, rms, electrons);
}
QUEN_TARGET_AVX512 void AddReadNoiseAvx512(const Stream& stream, std::size_t first, double rms, double* electrons) {
  AddToChunk<16>(stream, first, rms, electrons);
}

}  // namespace

double ReadDeviate(const Stream& stream, std::uint32_t pixel) {
  const std::uint32_t block = pixel / 64 * 16 + pixel % 16;
  const std::size_t quarter = pixel / 16 % 4;
  const std::size_t word = quarter / 2 * 2;
  const Words words = Draw(stream, Stage::kRead, block);
  const std::uint32_t radius = words.at(word);
  const float u =
      IsInTail(radius) ? UniformOf(radius, Draw(stream, Stage::kReadMore, block).at(word)) : UniformOf(radius);
  const NormalPair normals = NormalsOf(u, words.at(word + 1));
  return static_cast<double>(quarter % 2 == 0 ? normals.first : normals.second);
}

void AddReadNoise(Level level, const Stream& stream, std::size_t first, double rms, double* electrons) {
  common::simd::Pick(level, AddReadNoisePlain, AddReadNoiseAvx2, AddReadNoiseAvx512)(stream, first, rms, electrons);
}

}  // namespace quen::detector
