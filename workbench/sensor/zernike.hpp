#pragma once

#include <vector>

/// @file
/// Zernike modes in Noll's order and normalisation, after R. J. Noll, "Zernike polynomials and atmospheric turbulence",
/// J. Opt. Soc. Am. 66, 207 (1976). Mode 1 is piston, 2 and 3 are tip and tilt, 4 is defocus. Each has unit variance
/// over the full unit disc.

namespace quen::workbench {

/// Radial order n and azimuthal order m of a mode.
struct Orders {
  int n;
  int m;
};

/// The orders of mode `j`, counted from 1.
Orders NollOrders(int j);

/// Whether mode `j` goes with cos(mθ), θ counted from the x axis toward the y axis: the even ones, and those of m = 0.
/// The others go with sin(mθ).
bool IsCosine(int j);

/// A derivative along x and along y.
struct Gradient {
  double x;
  double y;
};

/// A mode, ready to be evaluated at many points.
class Zernike {
 public:
  /// @param j  counted from 1
  explicit Zernike(int j);

  /// Gradient at (x, y), in units of the disc's radius.
  [[nodiscard]] Gradient GradientAt(double x, double y) const;

  /// Mean of the gradient over the square of this size (side length) around (x, y). Exact up to radial order 12, that
  /// is j ≤ 91; beyond, the smaller the square, the closer.
  [[nodiscard]] Gradient MeanGradient(double x, double y, double size) const;

 private:
  int m_;
  bool is_cosine_;
  double norm_;
  std::vector<double> radial_;  // coefficients of the radial polynomial over ρ^m, a polynomial in ρ², constant first
};

/// Covariance of modes `j` and `k`, both ≥ 2, in Kolmogorov turbulence, in rad² for an unobscured pupil of D/r0 = 1. It
/// grows as (D/r0)^(5/3). Noll's equation 25 with its integral in closed form.
double KolmogorovCovariance(int j, int k);

/// Variance of mode `j` ≥ 2.
inline double KolmogorovVariance(int j) { return KolmogorovCovariance(j, j); }

}  // namespace quen::workbench
