#include "centroiders/src/scoring_step.hpp"

#include <cmath>

namespace quen::centroiders {
namespace {

/// Σ w · (function a) · (function b).
double Information(const SpotMoments& moments, const Term& a, const Term& b) {
  const auto& sums = moments.information[a.n + b.n];
  const auto with = [&](std::size_t j, std::size_t k) {
    return b.is_round ? sums[j + 2][k] + sums[j][k + 2] : sums[j + b.j][k + b.k];
  };
  return a.is_round ? with(2, 0) + with(0, 2) : with(a.j, a.k);
}

/// Σ w · (l − μ) · (function a).
double ScoreOf(const SpotMoments& moments, const Term& a) {
  const auto& sums = moments.score[a.n];
  return a.is_round ? sums[2][0] + sums[0][2] : sums[a.j][a.k];
}

}  // namespace

Terms::Terms(SpotShape shape, SpotBackground background)
    : extent_{shape == SpotShape::kGiven ? 1U : 2U, background == SpotBackground::kSlope ? 1U : 0U,
              shape == SpotShape::kOval} {
  Add({1, 1, 0});
  Add({1, 0, 1});
  if (shape == SpotShape::kRound) Add({1, 2, 0, true});
  if (shape == SpotShape::kOval) {
    Add({1, 2, 0});
    Add({1, 1, 1});
    Add({1, 0, 2});
  }
  first_of_background_ = number_;
  if (background != SpotBackground::kGiven) Add({0, 0, 0});
  if (background == SpotBackground::kSlope) {
    Add({0, 1, 0});
    Add({0, 0, 1});
  }
  Add({1, 0, 0});
}

/// By Cholesky's decomposition L · Lᵀ of the information, scaled so that its diagonal is one: a pivot, which is what is
/// left of that one, tells whether a function depends on those before it.
std::optional<Coefficients> Solve(const SpotMoments& moments, const Terms& terms) {
  constexpr double kSingular = 1e-10;
  const std::size_t n = terms.Number();
  std::array<std::array<double, Terms::kMost>, Terms::kMost> l{};
  std::array<double, Terms::kMost> scale{};
  std::array<double, Terms::kMost> inverse{};  // of L's diagonal
  Coefficients solution{};
  auto& z = solution.of;
  for (std::size_t i = 0; i < n; ++i) {
    const double diagonal = Information(moments, terms[i], terms[i]);
    if (!(diagonal > 0.0)) return std::nullopt;
    scale[i] = 1.0 / std::sqrt(diagonal);
    for (std::size_t j = 0; j <= i; ++j) {
      double rest = scale[i] * scale[j] * Information(moments, terms[i], terms[j]);
      for (std::size_t k = 0; k < j; ++k) rest -= l[i][k] * l[j][k];
      if (i == j && !(rest > kSingular)) return std::nullopt;
      if (i == j) inverse[i] = 1.0 / std::sqrt(rest);
      l[i][j] = rest * inverse[j];
    }
    z[i] = scale[i] * ScoreOf(moments, terms[i]);
    for (std::size_t k = 0; k < i; ++k) z[i] -= l[i][k] * z[k];
    z[i] *= inverse[i];
  }
  for (std::size_t i = n; i-- > 0;) {
    for (std::size_t k = i + 1; k < n; ++k) z[i] -= l[k][i] * z[k];
    z[i] *= inverse[i];
  }
  for (std::size_t i = 0; i < n; ++i) z[i] *= scale[i];
  const double last = scale[n - 1] * inverse[n - 1];
  solution.height_variance = last * last;
  return solution;
}

}  // namespace quen::centroiders
