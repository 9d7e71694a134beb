#include "detector/src/elementary.hpp"

#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace quen::detector {
namespace {

constexpr double kLn2High = 0x1.62e42fefa38p-1;  // the product with an exponent is exact
constexpr double kLn2Low = 0x1.ef35793c7673p-45;
constexpr double kSquareRootOfHalf = 0x1.6a09e667f3bcdp-1;
constexpr double kOneOverRootOfTwoPi = 0x1.9884533d43651p-2;

constexpr std::array<double, 15> InverseFactorials() {
  std::array<double, 15> inverse = {1.0};
  for (std::size_t k = 1; k < inverse.size(); ++k) inverse.at(k) = inverse.at(k - 1) / static_cast<double>(k);
  return inverse;
}

/// 1/k!: the powers of ln 2 / 2 after them are below 2⁻⁶⁰.
constexpr std::array kInverseFactorial = InverseFactorials();

/// 2^e for −1022 ≤ e ≤ 1023.
double PowerOfTwo(std::int64_t e) { return std::bit_cast<double>(static_cast<std::uint64_t>(e + 1023) << 52); }

/// artanh(s) / s − 1 = s²/3 + s⁴/5 + …, for |s| < 0.172: the first term left out is below 2⁻⁶⁰.
double ArtanhTail(double s) {
  const double square = s * s;
  double sum = 0.0;
  for (int k = 23; k >= 3; k -= 2) sum = (sum + 1.0 / k) * square;
  return sum;
}

}  // namespace

double Exp(double x) {
  const double e = std::nearbyint(x * 0x1.71547652b82fep0);
  const double rest = (x - e * kLn2High) - e * kLn2Low;  // at most ln 2 / 2
  double sum = kInverseFactorial.back();
  for (std::size_t k = kInverseFactorial.size() - 1; k-- > 0;) sum = sum * rest + kInverseFactorial.at(k);
  return sum * PowerOfTwo(static_cast<std::int64_t>(e));
}

double Log(double x) {
  const auto bits = std::bit_cast<std::uint64_t>(x);
  auto e = static_cast<std::int64_t>(bits >> 52) - 1022;
  double m = x * PowerOfTwo(-e / 2) * PowerOfTwo(-e + e / 2);  // from 1/2 to 1
  if (m < kSquareRootOfHalf) {
    m *= 2.0;
    --e;
  }
  const double s = (m - 1.0) / (m + 1.0);
  const double log_m = 2.0 * s + 2.0 * s * ArtanhTail(s);
  const auto exponent = static_cast<double>(e);
  return exponent * kLn2High + (log_m + exponent * kLn2Low);
}

double LogOnePlusLessX(double x) {
  if (x < -0.25 || x > 0.25) return Log(1.0 + x) - x;
  // With s = x / (2 + x): ln(1 + x) = 2 artanh s, and 2 s − x = −s x.
  const double s = x / (2.0 + x);
  return s * (2.0 * ArtanhTail(s) - x);
}

double NormalTail(double w) {
  const double x = std::abs(w);
  const double density = kOneOverRootOfTwoPi * Exp(-0.5 * x * x);
  if (x < 3.0) {
    // 1/2 − φ(x) (x + x³/3 + x⁵/15 + …), all of one sign (G. Marsaglia, "Evaluating the normal distribution", 2004).
    double term = x;
    double sum = x;
    for (int k = 3; term > 1e-17 * sum; k += 2) {
      term *= x * x / k;
      sum += term;
    }
    return 0.5 - density * sum;
  }
  // φ(x) / (x + 1 / (x + 2 / (x + 3 / …))), Laplace's continued fraction.
  double fraction = x;
  for (int k = 80; k >= 1; --k) fraction = x + k / fraction;
  return density / fraction;
}

}  // namespace quen::detector
