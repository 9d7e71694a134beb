#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "detector/detector.hpp"

/// @file
/// A detector that a user begins with: a camera like many, and maps of its pixels that are drawn from a seed.

namespace quen::workbench {

/// Some thousand electrons a spot, and 16 bits for 100 000 of them.
quen::detector::DetectorConfig UsualCamera();

/// What maps are drawn from (detector/maps.hpp).
struct MapParameters {
  double non_uniformity = 0.01;  ///< of the pixels' responses, RMS over their mean
  double hot_pixels = 100.0;     ///< in a million
  double hot_level = 1000.0;     ///< mean of the hot pixels, electrons per frame
  std::uint32_t seed = 1;
};

/// The files of a detector: its description, DIR/camera.json, and maps beside it, DIR/camera_WHAT.fits.
std::vector<std::string> NewDetectorNames(const std::string& description);

/// Draws the maps of a detector, and makes its files.
/// @param names   as above
/// @param config  without maps
/// @return  bytes of each of the files
std::vector<std::string> NewDetectorFiles(const std::vector<std::string>& names, quen::detector::DetectorConfig config,
                                          const MapParameters& parameters);

}  // namespace quen::workbench
