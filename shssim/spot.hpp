#pragma once

#include <numbers>

/// @file
/// The spot that the simulator draws, and the one place where its size stands: a Gaussian. At a pixel whose centre is r
/// pixels from the spot's,
///
///     kSpotPeak · exp(kSpotExponent · r²) = 4096 · exp(−r² / (2 · 2²)).
///
/// Numbers alone: whoever includes this header needs no library for it.

namespace quen::shssim {

inline constexpr double kSpotPeak = 4096.0;  ///< peak of a spot, in units of pixel values
inline constexpr double kSpotSigma = 2.0;    ///< standard deviation, pixels

/// What the squared distance from the centre is multiplied with in the exponential: −1/8 per square pixel.
inline constexpr double kSpotExponent = -0.5 / (kSpotSigma * kSpotSigma);

inline constexpr double kFwhmPerSigma = 2.3548200450309493;      ///< of any Gaussian: 2 √(2 ln 2)
inline constexpr double kSpotFwhm = kFwhmPerSigma * kSpotSigma;  ///< full width at half maximum, pixels

/// Light of the whole spot, in units of pixel values: the Gaussian's integral, which its sum over pixels equals to
/// 10⁻¹⁶.
inline constexpr double kSpotFlux = 2.0 * std::numbers::pi * kSpotSigma * kSpotSigma * kSpotPeak;

}  // namespace quen::shssim
