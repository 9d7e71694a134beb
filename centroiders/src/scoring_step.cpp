#include "centroiders/src/scoring_step.hpp"

namespace quen::centroiders {
Terms::Terms(SpotShape shape, SpotBackground background)
    : extent_{shape == SpotShape::kGiven ? 1U : 2U, background == SpotBackground::kSlope ? 1U : 0U,
              shape == SpotShape::kOval} {
  Add({1, 1, 0});
  Add({1, 0, 1});
  if (shape == SpotShape::kRound) Add(Term::Round());
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

namespace {

/// By the decomposition L · D · Lᵀ of the information, with ones on L's diagonal. A pivot, an element of D, is what is
/// left of the information's diagonal element: it tells whether a function depends on those before it.
template <std::size_t N>
std::optional<Coefficients> SolveFor(const SpotMoments& moments, const Terms& terms) {
  constexpr double kSingular = 1e-10;
  std::array<std::array<double, N>, N> l{};
  std::array<double, N> inverse{};  // of the pivots
  std::array<double, N> z{};
  for (std::size_t i = 0; i < N; ++i) {
    const double diagonal = terms[i].Information(moments, terms[i]);
    std::array<double, N> l_d{};
    double pivot = diagonal;
    z[i] = terms[i].Score(moments);
    for (std::size_t j = 0; j < i; ++j) {
      l_d[j] = terms[i].Information(moments, terms[j]);
      for (std::size_t k = 0; k < j; ++k) l_d[j] -= l_d[k] * l[j][k];
      l[i][j] = l_d[j] * inverse[j];
      pivot -= l_d[j] * l[i][j];
      z[i] -= l[i][j] * z[j];
    }
    if (!(pivot > kSingular * diagonal)) return std::nullopt;
    inverse[i] = 1.0 / pivot;
  }
  Coefficients solution{};
  for (std::size_t i = N; i-- > 0;) {
    double rest = z[i] * inverse[i];
    for (std::size_t k = i + 1; k < N; ++k) rest -= l[k][i] * solution.of[k];
    solution.of[i] = rest;
  }
  solution.height_variance = inverse[N - 1];
  return solution;
}

}  // namespace

std::optional<Coefficients> Solve(const SpotMoments& moments, const Terms& terms) {
  switch (terms.Number()) {
    case 3:
      return SolveFor<3>(moments, terms);
    case 4:
      return SolveFor<4>(moments, terms);
    case 5:
      return SolveFor<5>(moments, terms);
    case 6:
      return SolveFor<6>(moments, terms);
    case 7:
      return SolveFor<7>(moments, terms);
    default:
      return SolveFor<Terms::kMost>(moments, terms);
  }
}

}  // namespace quen::centroiders
