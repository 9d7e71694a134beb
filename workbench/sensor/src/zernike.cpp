#include "workbench/sensor/zernike.hpp"

#include <array>
#include <cmath>
#include <complex>
#include <numbers>

namespace quen::workbench {
namespace {

double Factorial(int k) { return std::tgamma(k + 1.0); }

/// R(ρ) / ρ^m = Σₛ (−1)ˢ (n − s)! / (s! ((n + m)/2 − s)! ((n − m)/2 − s)!) t^((n − m)/2 − s),  t = ρ²
std::vector<double> RadialCoefficients(Orders orders) {
  const auto [n, m] = orders;
  const int degree = (n - m) / 2;
  std::vector<double> coefficients(static_cast<std::size_t>(degree) + 1);
  for (int s = 0; s <= degree; ++s) {
    const int power = degree - s;
    const double sign = s % 2 == 0 ? 1.0 : -1.0;
    coefficients[static_cast<std::size_t>(power)] =
        sign * Factorial(n - s) / (Factorial(s) * Factorial((n + m) / 2 - s) * Factorial(power));
  }
  return coefficients;
}

/// Value and derivative of a polynomial, constant first.
struct Polynomial {
  double value = 0.0;
  double derivative = 0.0;

  Polynomial(const std::vector<double>& coefficients, double t) {
    for (auto coefficient = coefficients.rbegin(); coefficient != coefficients.rend(); ++coefficient) {
      derivative = derivative * t + value;
      value = value * t + *coefficient;
    }
  }
};

std::complex<double> Power(std::complex<double> z, int exponent) {
  std::complex<double> power = 1.0;
  for (int k = 0; k < exponent; ++k) power *= z;
  return power;
}

}  // namespace

Orders NollOrders(int j) {
  int n = 0;
  while (j > (n + 1) * (n + 2) / 2) ++n;
  const int k = j - n * (n + 1) / 2;  // position within the order, from 1
  const int m = n % 2 == 0 ? k / 2 * 2 : (k - 1) / 2 * 2 + 1;
  return {n, m};
}

bool IsCosine(int j) { return NollOrders(j).m == 0 || j % 2 == 0; }

Zernike::Zernike(int j)
    : m_(NollOrders(j).m),
      is_cosine_(IsCosine(j)),
      norm_(std::sqrt((m_ == 0 ? 1.0 : 2.0) * (NollOrders(j).n + 1.0))),
      radial_(RadialCoefficients(NollOrders(j))) {}

Gradient Zernike::GradientAt(double x, double y) const {
  // Z = N · P(ρ²) · Re or Im of (x + iy)^m: no angle, hence nothing singular in the centre.
  const Polynomial p(radial_, x * x + y * y);
  const std::complex<double> z(x, y);
  const std::complex<double> power = Power(z, m_);
  const std::complex<double> derivative = m_ == 0 ? 0.0 : static_cast<double>(m_) * Power(z, m_ - 1);
  const std::complex<double> along_x = 2.0 * x * p.derivative * power + p.value * derivative;
  const std::complex<double> along_y =
      2.0 * y * p.derivative * power + p.value * std::complex<double>(0, 1) * derivative;
  return is_cosine_ ? Gradient{norm_ * along_x.real(), norm_ * along_y.real()}
                    : Gradient{norm_ * along_x.imag(), norm_ * along_y.imag()};
}

Gradient Zernike::MeanGradient(double x, double y, double size) const {
  // Gauss-Legendre with six points along each axis: exact for polynomials of degree 11.
  constexpr std::array<double, 6> kNodes = {-0.9324695142031521, -0.6612093864662645, -0.2386191860831969,
                                            0.2386191860831969,  0.6612093864662645,  0.9324695142031521};
  constexpr std::array<double, 6> kWeights = {0.1713244923791704, 0.3607615730481386, 0.4679139345726910,
                                              0.4679139345726910, 0.3607615730481386, 0.1713244923791704};
  Gradient mean{0.0, 0.0};
  for (std::size_t a = 0; a < kNodes.size(); ++a) {
    for (std::size_t b = 0; b < kNodes.size(); ++b) {
      const Gradient gradient = GradientAt(x + 0.5 * size * kNodes[a], y + 0.5 * size * kNodes[b]);
      const double weight = 0.25 * kWeights[a] * kWeights[b];
      mean.x += weight * gradient.x;
      mean.y += weight * gradient.y;
    }
  }
  return mean;
}

double KolmogorovCovariance(int j, int k) {
  using std::numbers::pi;
  const auto [n, m] = NollOrders(j);
  const auto [other_n, other_m] = NollOrders(k);
  if (m != other_m || IsCosine(j) != IsCosine(k)) return 0.0;
  // Phase spectrum 0.0229 r0^(−5/3) k^(−11/3); Noll rounds twice its constant to 0.046.
  const double spectrum = std::pow(24.0 / 5.0 * std::tgamma(6.0 / 5.0), 5.0 / 6.0) *
                          std::pow(std::tgamma(11.0 / 6.0), 2) / (2.0 * std::pow(pi, 11.0 / 3.0));
  // ∫ J(u) J'(u) u^(−14/3) du over (0, ∞), J and J' the Bessel functions of orders n + 1 and n' + 1.
  const double integral =
      std::tgamma(14.0 / 3.0) * std::tgamma((n + other_n - 5.0 / 3.0) / 2.0) /
      (std::pow(2.0, 14.0 / 3.0) * std::tgamma((n - other_n + 17.0 / 3.0) / 2.0) *
       std::tgamma((other_n - n + 17.0 / 3.0) / 2.0) * std::tgamma((n + other_n + 23.0 / 3.0) / 2.0));
  const double sign = (n + other_n - 2 * m) / 2 % 2 == 0 ? 1.0 : -1.0;
  return sign * 2.0 * spectrum / pi * std::pow(0.5, 5.0 / 3.0) * std::sqrt((n + 1.0) * (other_n + 1.0)) *
         std::pow(2.0 * pi, 11.0 / 3.0) * integral;
}

}  // namespace quen::workbench
