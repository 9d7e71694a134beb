#pragma once

/// @file
/// Zernike modes in Noll's order and normalisation, after R. J. Noll, "Zernike polynomials and atmospheric turbulence",
/// J. Opt. Soc. Am. 66, 207 (1976). Mode 1 is piston, 2 and 3 are tip and tilt, 4 is defocus. Each has unit variance
/// over the full unit disc.

namespace quen_shs {

/// Radial order n and azimuthal order m of a mode.
struct Orders {
  int n;
  int m;
};

/// The orders of mode `j`, counted from 1.
Orders NollOrders(int j);

/// A derivative along x and along y.
struct Gradient {
  double x;
  double y;
};

/// Gradient of mode `j` at (x, y), in units of the disc's radius. Even modes go with cos(mθ), odd ones with sin(mθ),
/// θ counted from the x axis toward the y axis.
Gradient ZernikeGradient(int j, double x, double y);

/// Mean of the gradient over the square of this size (side length) around (x, y). Exact up to radial order 12, that is j ≤ 91.
Gradient MeanZernikeGradient(int j, double x, double y, double size);

/// Variance of mode `j` ≥ 2 in Kolmogorov turbulence, in rad² for a pupil of D/r0 = 1. It grows as (D/r0)^(5/3).
/// Noll's equation 25 with its integral in closed form, for one mode and the unobscured disc.
double KolmogorovVariance(int j);

}  // namespace quen_shs
