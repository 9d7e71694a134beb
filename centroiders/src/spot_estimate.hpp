#pragma once

#include <optional>

#include "centroiders/maximum_likelihood_fit.hpp"
#include "centroiders/src/symmetric.hpp"

namespace quen::centroiders {

/// What a linear fit adds to a spot  height · g,  g = exp(−xᵀ P x / 2):  (height + linear · x + xᵀ · square · x) · g.
struct Correction {
  double height;
  Point linear;
  Symmetric square;  ///< 0 for a given width, a multiple of one for a round spot
};

/// A Gaussian spot,  height · exp(−(x − centre)ᵀ · p · (x − centre) / 2).
struct SpotEstimate {
  double height;
  Point centre;
  Symmetric p;
  double part;    ///< of the correction that has been taken, at most 1
  double change;  ///< of the squared widths, relative to them, if all of it had been: the root of the sum of the
                  ///< squared eigenvalues
};

/// The Gaussian spot that a linear fit is close to; nothing where there is no light.
///
/// To first order its parameters differ from those of g by what the coefficients say, as in Fisher's scoring. Far away
/// that is too much or too little. But with equal weights, pixels finer than the spot and a wide region the fit has the
/// light, the mean and the variances of the spot times g. Where C = (2 P)⁻¹ are the variances of g², these are
///
///     light = height + tr(C · square),   mean = C · linear / light,
///     variances = C + 2 C · square · C / light − mean · meanᵀ
///
/// with the corrected height. The product of two Gaussians is one, with S = variances⁻¹ = P + p about S⁻¹ · p · centre.
/// That gives the spot from afar. Where the weights are others, it is as good as scoring is, and has the same end.
///
/// A step is limited: only that part of a correction is taken which does not change the variances by more than 0.7 of
/// themselves, and so no deviation by more than a factor of about two.
///
/// @param height  of the spot that is corrected; 0 where there is none yet
std::optional<SpotEstimate> EstimateSpot(double height, const Symmetric& p, const Correction& correction,
                                         SpotShape shape);

}  // namespace quen::centroiders
