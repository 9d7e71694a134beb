#pragma once

#include <numbers>

#include "shssim/shs_simulator.hpp"

/// @file
/// The spot that the simulator draws, which engines are matched to unless they are told otherwise:
///
///     4096 · exp(−r² / (2 · 2²)),   r in pixels from the spot's centre.

namespace quen::centroiders {

inline constexpr double kFwhmPerSigma = 2.3548200450309493;  ///< full width at half maximum, 2 √(2 ln 2) deviations
inline constexpr double kSpotSigma = 2.0;                    ///< standard deviation, pixels
inline constexpr double kSpotFwhm = kFwhmPerSigma * kSpotSigma;  ///< pixels
/// Light of the whole spot, in units of pixel values: the Gaussian's integral, which its sum over pixels equals to 10⁻¹⁶.
inline constexpr double kSpotFlux = 2.0 * std::numbers::pi * kSpotSigma * kSpotSigma * shssim::kSpotPeak;

}  // namespace quen::centroiders
