#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "common/checks/limits.hpp"

/// @file
/// How a camera's counts are read as light, before an engine sees them:
///
///     light = (count − pedestal − dark_map) / flat_map        counts
///
/// A pixel does not count where it is bad, as the map of bad pixels or a response below 0.001 says, or saturated, as
/// its count says that has reached the ceiling. What an engine does without such pixels, its header says.
///
/// The engines of pixel_engine.hpp take a count for light as it is, signed. That costs nothing, and is right for frames
/// of the simulator. Others reach them by way of LightEngine (light_engine.hpp); MaximumLikelihoodFit reads by itself.

namespace quen::centroiders {

/// What a pixel's 16 bits are.
enum class PixelSign {
  kSigned,    ///< two's complement, −32768 to 32767: the simulator's pixels
  kUnsigned,  ///< 0 to 65535: a camera's, or the detector's
};

/// What the numbers of PixelReading may be.
struct PixelReadingLimits {
  static constexpr common::Limits kPedestal = {-65535.0, 65535.0};  ///< counts
  static constexpr common::Limits kCeiling = {-32768.0, 65535.0};   ///< counts
  static constexpr common::Limits kDark = kPedestal;                ///< of each pixel, counts
  static constexpr common::Limits kResponse = {0.0, 1000.0};        ///< of each pixel, relative
};

/// Numbers are within PixelReadingLimits.
/// A map is empty, which is none, or has an element for each pixel of the frame: column c of row r is element
/// c + r · width. A frame of another size ends the process, as one does that is too small for its region.
struct PixelReading {
  PixelSign sign = PixelSign::kSigned;        ///< what the bits are
  double pedestal = 0.0;                      ///< counts without any light
  std::optional<double> ceiling = {};         ///< counts that are saturated, from this one up
  std::vector<double> dark_map = {};          ///< counts, each within kDark
  std::vector<double> flat_map = {};          ///< relative response, each within kResponse
  std::vector<std::uint8_t> bad_pixels = {};  ///< other than 0 is a bad pixel
};

}  // namespace quen::centroiders
