#pragma once

#include "shssim/spot.hpp"

/// @file
/// The spot that engines are matched to unless they are told otherwise, which is the one that the simulator draws: its
/// numbers (shssim/spot.hpp) under the engines' own namespace.

namespace quen::centroiders {

using shssim::kFwhmPerSigma;
using shssim::kSpotFlux;
using shssim::kSpotFwhm;
using shssim::kSpotSigma;

}  // namespace quen::centroiders
