#pragma once

#include <immintrin.h>

#include "common/simd/level.hpp"

/// @file
/// A product and a sum with one rounding, for all elements of a level's vectors: a fused step, which every level above
/// the plain one has. Internal to the library.
///
/// By the instruction itself: g++ 12 does not make it of a loop over the elements wherever there is one. Inline without
/// being forced to be, for only a caller of that level can take it in.

namespace quen::common::simd {

using FourDoubles __attribute__((vector_size(4 * sizeof(double)))) = double;
using EightDoubles __attribute__((vector_size(8 * sizeof(double)))) = double;

/// sum + a · b
QUEN_TARGET_AVX2 inline void AddProduct(FourDoubles& sum, const FourDoubles& a, const FourDoubles& b) {
  sum = _mm256_fmadd_pd(a, b, sum);
}
QUEN_TARGET_AVX2 inline void AddProduct(FourDoubles& sum, const FourDoubles& a, double b) {
  sum = _mm256_fmadd_pd(a, _mm256_set1_pd(b), sum);
}
QUEN_TARGET_AVX512 inline void AddProduct(EightDoubles& sum, const EightDoubles& a, const EightDoubles& b) {
  sum = _mm512_fmadd_pd(a, b, sum);
}
QUEN_TARGET_AVX512 inline void AddProduct(EightDoubles& sum, const EightDoubles& a, double b) {
  sum = _mm512_fmadd_pd(a, _mm512_set1_pd(b), sum);
}

}  // namespace quen::common::simd
