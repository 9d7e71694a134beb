#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "detector/detector.hpp"
#include "workbench/fits/input_file.hpp"

/// @file
/// What engines know of a camera's pixels, each of the 840 × 816, so that they correct frames for it.

namespace quen::workbench {

/// The maps of quen::centroiders::PixelReading. Each is empty, which is none, or has an element for each pixel.
struct PixelMaps {
  std::vector<double> dark = {};       ///< counts without light
  std::vector<double> flat = {};       ///< relative response
  std::vector<std::uint8_t> bad = {};  ///< other than 0 is a bad pixel

  [[nodiscard]] bool AreEmpty() const { return dark.empty() && flat.empty() && bad.empty(); }
};

/// What a detector's own maps make of its frames: gain · em_gain · dark_map + offset_map counts without light, beside
/// its pedestal and the dark of all pixels; its response; and as bad all pixels that are dead, hot or stuck, or have
/// more counts without light than a converter has.
PixelMaps MapsOf(const quen::detector::DetectorConfig& detector);

/// @param option  by which engines are told of the maps, as the user wrote it
/// @param file    of the detector's description
/// @throws std::runtime_error  the detector has none
void RequireMaps(const quen::detector::DetectorConfig& detector, const std::string& option, const std::string& file);

/// Reads a map of counts without light.
/// @throws std::runtime_error  the file cannot be read, is no image of 840 × 816 numbers, or has one in it that is not
///                             within PixelReadingLimits::kDark
std::vector<double> ReadDarkMap(const InputFile& file);

/// Reads a map of the relative response.
/// @throws std::runtime_error  as for ReadDarkMap, with PixelReadingLimits::kResponse
std::vector<double> ReadFlatMap(const InputFile& file);

/// Reads a map of bad pixels: those that are not 0, NaN included.
/// @throws std::runtime_error  the file cannot be read, is no image of 840 × 816 numbers, or leaves no good pixel
std::vector<std::uint8_t> ReadBadPixels(const InputFile& file);

}  // namespace quen::workbench
