#pragma once

#include <cstdint>
#include <vector>

#include "common/checks/limits.hpp"
#include "defs/export.hpp"
#include "detector/detector.hpp"

/// @file
/// Maps of a detector's pixels, drawn from a seed: the same seed gives the same map, on any machine. Their numbers have
/// nothing in common with those of the noise of any frame, also with the same seed.

namespace quen::detector {

/// Of what maps are drawn from.
struct MapLimits {
  static constexpr common::Limits kFlatRms = {0.0, 1.0};    ///< of relative responses
  static constexpr common::Limits kHotPixels = {0.0, 1e6};  ///< in a million
  static constexpr common::Limits kHotLevel = {0.0, 1e7};   ///< electrons per frame, the mean
};

/// Relative responses: 1 + rms · Normal(0, 1), but at least 0.
/// @param seed  any number
/// @param rms   within kFlatRms
/// @throws std::invalid_argument  `rms` is out of its range
QUEN_EXPORT std::vector<double> DrawFlatMap(std::uint64_t seed, double rms);

/// Makes pixels hot that are good: each with the same probability, and with a level of its own, exponentially
/// distributed.
/// @param seed         any number
/// @param per_million  hot pixels expected in a million, within kHotPixels
/// @param mean_level   electrons per frame, within kHotLevel
/// @param config       whose bad_pixels and bad_pixel_levels get them; both get their full size
/// @throws std::invalid_argument  a parameter is out of its range, or a map has another size; `config` is untouched
/// then
QUEN_EXPORT void AddHotPixels(std::uint64_t seed, double per_million, double mean_level, DetectorConfig& config);

}  // namespace quen::detector
