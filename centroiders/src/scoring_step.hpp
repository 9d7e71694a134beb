#pragma once

#include <array>
#include <cstddef>
#include <optional>

#include "centroiders/maximum_likelihood_fit.hpp"
#include "centroiders/src/spot_moments.hpp"

namespace quen::centroiders {

/// A function whose coefficient a step finds: gⁿ · u^j · v^k, or g · (u² + v²), which is the sum of two such.
class Term {
 public:
  constexpr Term() = default;
  constexpr Term(std::size_t n, std::size_t j, std::size_t k) : first_(n, j, k) {}
  static constexpr Term Round() {
    Term term(1, 2, 0);
    term.second_ = Place(1, 0, 2);
    term.is_sum_ = true;
    return term;
  }

  /// Σ w · (this function) · (the other one).
  [[nodiscard]] double Information(const SpotMoments& moments, const Term& other) const {
    const double* const sums = moments.information[0][0].data();
    double sum = sums[first_.product + other.first_.product];
    if (is_sum_) sum += sums[second_.product + other.first_.product];
    if (other.is_sum_) sum += sums[first_.product + other.second_.product];
    if (is_sum_ && other.is_sum_) sum += sums[second_.product + other.second_.product];
    return sum;
  }
  /// Σ w · (l − μ) · (this function).
  [[nodiscard]] double Score(const SpotMoments& moments) const {
    const double* const sums = moments.score[0][0].data();
    return is_sum_ ? sums[first_.single] + sums[second_.single] : sums[first_.single];
  }

 private:
  /// Where the sums for gⁿ · u^j · v^k are: among those of products the places of two functions are to be added.
  struct Place {
    constexpr Place() = default;
    constexpr Place(std::size_t n, std::size_t j, std::size_t k)
        : product((n * SpotMoments::kPowers + j) * SpotMoments::kPowers + k), single((n * 3 + j) * 3 + k) {}
    std::size_t product = 0;
    std::size_t single = 0;
  };

  Place first_;
  Place second_;
  bool is_sum_ = false;
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
