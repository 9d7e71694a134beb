#pragma once

#include <cstddef>
#include <vector>

#include "centroiders/src/weighted_sums.hpp"

namespace quen::centroiders {

/// A Gaussian along one axis, sampled at whole numbers: g(u) = exp(−u² / (2 σ²)), nothing beyond nine deviations (below
/// 3·10⁻¹⁸ there).
class Gaussian {
 public:
  explicit Gaussian(double fwhm);

  [[nodiscard]] double Sigma() const { return sigma_; }

  /// even = g(x − centre) and odd = (x − centre) · g(x − centre) for x = first … first + count − 1, and zeros up to
  /// a whole block of eight.
  void Fill(common::simd::Level level, double centre, std::size_t first, std::size_t count, AxisWeights& weights) const;

  /// Fill, and adds the norms of what it fills.
  void FillAndAddNorms(common::simd::Level level, double centre, std::size_t first, std::size_t count,
                       AxisWeights& weights, Norms& norms) const;

  /// Fill for one centre, as SumWeighted wants it.
  [[nodiscard]] auto Along(common::simd::Level level, double centre) const {
    return [this, level, centre](std::size_t first, std::size_t count, AxisWeights& weights) {
      Fill(level, centre, first, count, weights);
    };
  }

 private:
  double sigma_;
  std::vector<double> at_integers_;  // g(−reach) … g(reach), with a block of zeros before and after
};

}  // namespace quen::centroiders
