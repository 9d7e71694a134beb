#include "tools/quen-shs/src/zernike.hpp"

#include <array>
#include <cmath>
#include <complex>
#include <numbers>

namespace quen_shs {
namespace {

double Factorial(int k) { return std::tgamma(k + 1.0); }

/// The radial polynomial without its factor ρ^m, as a polynomial in t = ρ²: value and derivative.
struct Radial {
  double value;
  double derivative;
};

/// R(ρ) / ρ^m = Σₛ (−1)ˢ (n − s)! / (s! ((n + m)/2 − s)! ((n − m)/2 − s)!) t^((n − m)/2 − s)
Radial RadialPolynomial(Orders orders, double t) {
  const auto [n, m] = orders;
  Radial radial{0.0, 0.0};
  for (int s = 0; s <= (n - m) / 2; ++s) {
    const int power = (n - m) / 2 - s;
    const double sign = s % 2 == 0 ? 1.0 : -1.0;
    const double factor = sign * Factorial(n - s) / (Factorial(s) * Factorial((n + m) / 2 - s) * Factorial(power));
    radial.value += factor * std::pow(t, power);
    if (power > 0) radial.derivative += factor * power * std::pow(t, power - 1);
  }
  return radial;
}

}  // namespace

Orders NollOrders(int j) {
  int n = 0;
  while (j > (n + 1) * (n + 2) / 2) ++n;
  const int k = j - n * (n + 1) / 2;  // position within the order, from 1
  const int m = n % 2 == 0 ? k / 2 * 2 : (k - 1) / 2 * 2 + 1;
  return {n, m};
}

Gradient ZernikeGradient(int j, double x, double y) {
  // Z = N · P(ρ²) · Re or Im of (x + iy)^m: no angle, hence nothing singular in the centre.
  const Orders orders = NollOrders(j);
  const auto [n, m] = orders;
  const double norm = m == 0 ? std::sqrt(n + 1.0) : std::sqrt(2.0 * (n + 1.0));
  const Radial p = RadialPolynomial(orders, x * x + y * y);
  const std::complex<double> z(x, y);
  const std::complex<double> power = std::pow(z, m);
  const std::complex<double> derivative = m == 0 ? 0.0 : static_cast<double>(m) * std::pow(z, m - 1);
  const std::complex<double> along_x = 2.0 * x * p.derivative * power + p.value * derivative;
  const std::complex<double> along_y =
      2.0 * y * p.derivative * power + p.value * std::complex<double>(0, 1) * derivative;
  const bool cosine = m == 0 || j % 2 == 0;
  return cosine ? Gradient{norm * along_x.real(), norm * along_y.real()}
                : Gradient{norm * along_x.imag(), norm * along_y.imag()};
}

Gradient MeanZernikeGradient(int j, double x, double y, double size) {
  // Gauss-Legendre with six points along each axis: exact for polynomials of degree 11.
  constexpr std::array<double, 6> kNodes = {-0.9324695142031521, -0.6612093864662645, -0.2386191860831969,
                                            0.2386191860831969,  0.6612093864662645,  0.9324695142031521};
  constexpr std::array<double, 6> kWeights = {0.1713244923791704, 0.3607615730481386, 0.4679139345726910,
                                              0.4679139345726910, 0.3607615730481386, 0.1713244923791704};
  Gradient mean{0.0, 0.0};
  for (std::size_t a = 0; a < kNodes.size(); ++a) {
    for (std::size_t b = 0; b < kNodes.size(); ++b) {
      const Gradient gradient = ZernikeGradient(j, x + 0.5 * size * kNodes[a], y + 0.5 * size * kNodes[b]);
      const double weight = 0.25 * kWeights[a] * kWeights[b];
      mean.x += weight * gradient.x;
      mean.y += weight * gradient.y;
    }
  }
  return mean;
}

double KolmogorovVariance(int j) {
  using std::numbers::pi;
  const int n = NollOrders(j).n;
  // Phase spectrum 0.0229 r0^(−5/3) k^(−11/3); Noll rounds twice its constant to 0.046.
  const double spectrum = std::pow(24.0 / 5.0 * std::tgamma(6.0 / 5.0), 5.0 / 6.0) *
                          std::pow(std::tgamma(11.0 / 6.0), 2) / (2.0 * std::pow(pi, 11.0 / 3.0));
  // ∫ J²(u) u^(−14/3) du over (0, ∞), J the Bessel function of order n + 1.
  const double integral =
      std::tgamma(14.0 / 3.0) * std::tgamma(n - 5.0 / 6.0) /
      (std::pow(2.0, 14.0 / 3.0) * std::pow(std::tgamma(17.0 / 6.0), 2) * std::tgamma(n + 23.0 / 6.0));
  return 2.0 * spectrum / pi * std::pow(0.5, 5.0 / 3.0) * (n + 1.0) * std::pow(2.0 * pi, 11.0 / 3.0) * integral;
}

}  // namespace quen_shs
