#pragma once

#include <cstdint>
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

/// What a detector's own maps make of its frames: gain · em_gain · dark_map + offset_map counts without light, its
/// response, and as bad all pixels that are dead, hot or stuck.
PixelMaps MapsOf(const quen::detector::DetectorConfig& detector);

/// Reads a map of counts without light, of the relative response, or of bad pixels.
/// @throws std::runtime_error  the file cannot be read, is no image of 840 × 816 numbers, or has a number in it that is
///                             out of range
std::vector<double> ReadDarkMap(const InputFile& file);
std::vector<double> ReadFlatMap(const InputFile& file);
std::vector<std::uint8_t> ReadBadPixels(const InputFile& file);

}  // namespace quen::workbench
