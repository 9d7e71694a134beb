#pragma once

#include <array>
#include <cstddef>
#include <optional>

#include "centroiders/maximum_likelihood_fit.hpp"
#include "centroiders/src/spot_moments.hpp"

namespace quen::centroiders {

/// A function whose coefficient a step finds: gⁿ · u^j · v^k, or gⁿ · (u² + v²).
struct Term {
  std::size_t n;
  std::size_t j;
  std::size_t k;
  bool is_round = false;  ///< the second one
};

/// The functions of a fit, in the order of their coefficients:
///
///     g·u, g·v  |  g·(u² + v²) or g·u², g·u·v, g·v²  |  1  |  u, v  |  g
///
/// of which the shape's, the background's and its slopes' are there if they are free.
class Terms {
 public:
  static constexpr std::size_t kMost = 9;

  Terms(SpotShape shape, SpotBackground background);

  [[nodiscard]] std::size_t Number() const { return number_; }
  [[nodiscard]] std::size_t FirstOfBackground() const { return first_of_background_; }
  [[nodiscard]] std::size_t Height() const { return number_ - 1; }
  [[nodiscard]] const Term& operator[](std::size_t k) const { return list_[k]; }
  [[nodiscard]] const Extent& SumsNeeded() const { return extent_; }

 private:
  void Add(const Term& term) { list_.at(number_++) = term; }

  std::array<Term, kMost> list_{};
  std::size_t number_ = 0;
  std::size_t first_of_background_ = 0;
  Extent extent_;
};

struct Coefficients {
  std::array<double, Terms::kMost> of;  ///< as many as there are terms
  double height_variance;               ///< the inverse information's diagonal element of the last term
};

/// Solves  information · coefficients = score;  nothing where the pixels do not tell the terms apart.
std::optional<Coefficients> Solve(const SpotMoments& moments, const Terms& terms);

}  // namespace quen::centroiders
