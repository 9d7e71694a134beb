#include "workbench/detector/new_detector.hpp"

#include <filesystem>

#include "detector/maps.hpp"
#include "workbench/detector/description.hpp"
#include "workbench/detector/map_file.hpp"
#include "workbench/fits/header.hpp"

namespace quen::workbench {

using quen::detector::DetectorConfig;

namespace {

using quen::common::Fits::Handle;

void WriteSeed(const Handle& file, const MapParameters& parameters) {
  WriteKey(file, kSeedKeyword, static_cast<long>(parameters.seed), "that the map was drawn from");
}

}  // namespace

DetectorConfig UsualCamera() {
  DetectorConfig config;
  config.electrons_per_unit = 0.1;
  config.background = 2.0;
  config.dark = 0.1;
  config.read_noise = 3.0;
  config.full_well = 100000.0;
  config.gain = 0.5;
  config.offset = 100.0;
  return config;
}

std::vector<std::string> NewDetectorNames(const std::string& description) {
  const std::filesystem::path path(description);
  std::vector<std::string> names = {description};
  for (const char* const what : {"flat", "bad_pixels", "bad_pixel_levels"}) {
    names.push_back((path.parent_path() / (path.stem().string() + "_" + what + ".fits")).string());
  }
  return names;
}

std::vector<std::string> NewDetectorFiles(const std::vector<std::string>& names, DetectorConfig config,
                                          const MapParameters& parameters) {
  config.flat_map = quen::detector::DrawFlatMap(parameters.seed, parameters.non_uniformity);
  quen::detector::AddHotPixels(parameters.seed, parameters.hot_pixels, parameters.hot_level, config);
  const auto of_responses = [&](const Handle& file) {
    WriteKey(file, "NONUNIF", parameters.non_uniformity, "of the responses, RMS over their mean");
    WriteSeed(file, parameters);
  };
  const auto of_hot_pixels = [&](const Handle& file) {
    WriteKey(file, "HOTPIX", parameters.hot_pixels, "hot pixels in a million");
    WriteKey(file, "HOTLEVEL", parameters.hot_level, "[e-] mean of the hot pixels, per frame");
    WriteSeed(file, parameters);
  };
  const auto file_name = [&](std::size_t k) { return std::filesystem::path(names[k]).filename().string(); };
  return {DescribedInFull(
              config, {{"flat_map", file_name(1)}, {"bad_pixels", file_name(2)}, {"bad_pixel_levels", file_name(3)}}),
          MapFile(config.flat_map, "relative response of each pixel", of_responses),
          PixelStateFile(config.bad_pixels, of_hot_pixels),
          MapFile(config.bad_pixel_levels, "electrons per frame of hot pixels", of_hot_pixels)};
}

}  // namespace quen::workbench
