#include "centroiders/src/gaussian.hpp"

#include <algorithm>
#include <cmath>

#include "centroiders/src/block.hpp"
#include "shssim/spot.hpp"

// With n the whole number nearest to the centre and f = centre − n,
//
//     g(n + k − centre) = exp(−k² / (2σ²)) · exp(−f² / (2σ²)) · exp(f / σ²)^k,
//
// a table, a constant, and a power that grows by a factor from one k to the next. The plain form goes from the middle
// to both ends. The fast one goes from the lowest k up, eight at a time, whose powers grow by the factor's eighth
// power; the constant and the first power are one exponential. Both agree to a few last bits, and the fast levels
// exactly.
//
// The fast norms are added up while the weights are in registers, which saves a step of a fit the way through memory:
// products of columns eight apart share a running sum. They too agree with the plain ones to the last bits, and the
// fast levels exactly.

namespace quen::centroiders {
namespace {

using common::simd::Level;

constexpr double kFarthest = 9.0;  // deviations

std::ptrdiff_t Signed(std::size_t value) { return static_cast<std::ptrdiff_t>(value); }

/// What the norms of blocks add up to. D holds eight doubles.
template <typename D>
struct NormSums {
  QUEN_ALWAYS_INLINE void Add(const D& g, const D& moment) {
    even.AddProduct(g, g);
    mixed.AddProduct(g, moment);
    odd.AddProduct(moment, moment);
  }
  QUEN_ALWAYS_INLINE void AddTo(Norms& norms) const {
    norms.even += even.Total();
    norms.mixed += mixed.Total();
    norms.odd += odd.Total();
  }

  D even;
  D mixed;
  D odd;
};

/// Where along an axis the weights are to be known.
struct Stretch {
  double sigma;
  const double* at_integers;  ///< exp(−k² / (2σ²)) for k = −reach … reach, with zeros for a block more on either side
  std::ptrdiff_t reach;
  double f;               ///< from the nearest whole number to the centre
  std::ptrdiff_t middle;  ///< index of that number
  std::size_t count;
};

Stretch StretchOf(double sigma, const std::vector<double>& at_integers, double centre, std::size_t first,
                  std::size_t count) {
  const double nearest = std::nearbyint(centre);
  const std::size_t middle_of_table = at_integers.size() / 2;
  return {sigma,
          at_integers.data() + middle_of_table,
          Signed(middle_of_table - kBlock),
          centre - nearest,
          static_cast<std::ptrdiff_t>(nearest) - Signed(first),
          count};
}

void FillPlain(const Stretch& stretch, AxisWeights& weights) {
  const double growth = std::exp(stretch.f / (stretch.sigma * stretch.sigma));
  const double shrinkage = 1.0 / growth;
  double above = std::exp(-0.5 * stretch.f * stretch.f / (stretch.sigma * stretch.sigma));
  double below = above;
  const auto store = [&](std::ptrdiff_t index, double u, double g) {
    if (index < 0 || index >= Signed(stretch.count)) return;
    weights.even[static_cast<std::size_t>(index)] = g;
    weights.odd[static_cast<std::size_t>(index)] = u * g;
  };
  std::fill_n(weights.even.begin(), WholeBlocks(stretch.count), 0.0);
  std::fill_n(weights.odd.begin(), WholeBlocks(stretch.count), 0.0);
  for (std::ptrdiff_t k = 0; k <= stretch.reach; ++k) {
    const auto distance = static_cast<double>(k);
    store(stretch.middle - k, -distance - stretch.f, stretch.at_integers[k] * below);
    store(stretch.middle + k, distance - stretch.f, stretch.at_integers[k] * above);
    above *= growth;
    below *= shrinkage;
  }
}

void FillAndAddNormsPlain(const Stretch& stretch, AxisWeights& weights, Norms& norms) {
  FillPlain(stretch, weights);
  for (std::size_t k = 0; k < stretch.count; ++k) {
    norms.even += weights.even[k] * weights.even[k];
    norms.mixed += weights.even[k] * weights.odd[k];
    norms.odd += weights.odd[k] * weights.odd[k];
  }
}

/// Where nobody wants the norms, the compiler leaves them out.
template <typename D>
QUEN_ALWAYS_INLINE void FillBlocks(const Stretch& stretch, AxisWeights& weights, NormSums<D>& norms) {
  const std::size_t end = WholeBlocks(stretch.count);
  const auto inside = [&](std::ptrdiff_t index) {
    return static_cast<std::size_t>(std::clamp<std::ptrdiff_t>(index, 0, Signed(end)));
  };
  const std::size_t low = inside(stretch.middle - stretch.reach) / kBlock * kBlock;
  const std::size_t up = inside(stretch.middle + stretch.reach + 1);
  double* const even = weights.even.data();  // not checked, block by block
  double* const odd = weights.odd.data();
  for (std::size_t index = 0; index < low; index += kBlock) {
    D().Store(even + index);
    D().Store(odd + index);
  }
  std::size_t index = low;
  if (low < up) {
    const std::ptrdiff_t lowest = Signed(low) - stretch.middle;
    const auto k = static_cast<double>(lowest);
    const double per_step = stretch.f / (stretch.sigma * stretch.sigma);
    const double growth = std::exp(per_step);
    const double first = std::exp((k - 0.5 * stretch.f) * per_step);
    const double second = growth * growth;
    const double fourth = second * second;
    const D growths(fourth * fourth);
    const D steps(static_cast<double>(kBlock));
    D power;
    power.SetPowers(first, growth, second, fourth);
    D u;
    u.SetSteps(k - stretch.f);
    for (; index < up; index += kBlock) {
      D g(stretch.at_integers + lowest + Signed(index - low));
      g.Multiply(power);
      if (index + kBlock > stretch.count) g.KeepFirst(Signed(stretch.count - index));
      g.Store(even + index);
      D moment = g;
      moment.Multiply(u);
      moment.Store(odd + index);
      norms.Add(g, moment);
      power.Multiply(growths);
      u.Add(steps);
    }
  }
  for (; index < end; index += kBlock) {
    D().Store(even + index);
    D().Store(odd + index);
  }
}

template <typename D>
QUEN_ALWAYS_INLINE void FillAlone(const Stretch& stretch, AxisWeights& weights) {
  NormSums<D> unused;
  FillBlocks(stretch, weights, unused);
}

template <typename D>
QUEN_ALWAYS_INLINE void FillAndAddNorms(const Stretch& stretch, AxisWeights& weights, Norms& norms) {
  NormSums<D> sums;
  FillBlocks(stretch, weights, sums);
  sums.AddTo(norms);
}

QUEN_TARGET_AVX2 void FillAvx2(const Stretch& stretch, AxisWeights& weights) { FillAlone<Avx2Block>(stretch, weights); }
QUEN_TARGET_AVX512 void FillAvx512(const Stretch& stretch, AxisWeights& weights) {
  FillAlone<Avx512Block>(stretch, weights);
}
QUEN_TARGET_AVX2 void FillAndAddNormsAvx2(const Stretch& stretch, AxisWeights& weights, Norms& norms) {
  FillAndAddNorms<Avx2Block>(stretch, weights, norms);
}
QUEN_TARGET_AVX512 void FillAndAddNormsAvx512(const Stretch& stretch, AxisWeights& weights, Norms& norms) {
  FillAndAddNorms<Avx512Block>(stretch, weights, norms);
}

}  // namespace

Gaussian::Gaussian(double fwhm) : sigma_(fwhm / shssim::kFwhmPerSigma) {
  const auto reach = static_cast<std::ptrdiff_t>(std::ceil(kFarthest * sigma_));
  at_integers_.resize(static_cast<std::size_t>(2 * reach + 1) + 2 * kBlock, 0.0);
  for (std::ptrdiff_t k = -reach; k <= reach; ++k) {
    const double u = static_cast<double>(k) / sigma_;
    at_integers_[static_cast<std::size_t>(k + reach) + kBlock] = std::exp(-0.5 * u * u);
  }
}

void Gaussian::Fill(Level level, double centre, std::size_t first, std::size_t count, AxisWeights& weights) const {
  common::simd::Pick(level, FillPlain, FillAvx2, FillAvx512)(StretchOf(sigma_, at_integers_, centre, first, count),
                                                             weights);
}

void Gaussian::FillAndAddNorms(Level level, double centre, std::size_t first, std::size_t count, AxisWeights& weights,
                               Norms& norms) const {
  common::simd::Pick(level, FillAndAddNormsPlain, FillAndAddNormsAvx2, FillAndAddNormsAvx512)(
      StretchOf(sigma_, at_integers_, centre, first, count), weights, norms);
}

}  // namespace quen::centroiders
