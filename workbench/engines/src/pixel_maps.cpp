#include "workbench/engines/pixel_maps.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <stdexcept>

#include "centroiders/pixel_reading.hpp"
#include "workbench/detector/map_file.hpp"

namespace quen::workbench {
namespace {

using quen::centroiders::PixelReadingLimits;
using quen::detector::kPixels;
using quen::detector::kWidth;
using quen::detector::PixelState;

std::vector<double> ReadMapWithin(const InputFile& file, const quen::common::Limits& limits) {
  std::vector<double> map = ReadMap(file);
  const auto outside = std::ranges::find_if_not(map, [&](double element) { return limits.Contain(element); });
  if (outside == map.end()) return map;
  const auto pixel = static_cast<std::size_t>(outside - map.begin());
  throw std::runtime_error(
      fmt::format("{}: expected a map of numbers from {:g} to {:g}, found {:g} at column {}, row {}", file.Name(),
                  limits.lowest, limits.highest, *outside, pixel % kWidth, pixel / kWidth));
}

}  // namespace

void RequireMaps(const quen::detector::DetectorConfig& detector, const std::string& option, const std::string& file) {
  if (!MapsOf(detector).AreEmpty()) return;
  throw std::runtime_error(option + ": expected a detector with maps, found " + file + " without any");
}

PixelMaps MapsOf(const quen::detector::DetectorConfig& detector) {
  PixelMaps maps;
  if (!detector.dark_map.empty() || !detector.offset_map.empty()) maps.dark.assign(kPixels, 0.0);
  const double counts_per_electron = detector.gain * detector.em_gain;
  std::ranges::transform(detector.dark_map, maps.dark.begin(), [&](double dark) { return counts_per_electron * dark; });
  std::ranges::transform(detector.offset_map, maps.dark, maps.dark.begin(), std::plus());
  maps.flat = detector.flat_map;
  maps.bad.resize(detector.bad_pixels.size());
  std::ranges::transform(detector.bad_pixels, maps.bad.begin(),
                         [](PixelState state) { return static_cast<std::uint8_t>(state != PixelState::kGood); });
  for (std::size_t pixel = 0; pixel < maps.dark.size(); ++pixel) {
    if (PixelReadingLimits::kDark.Contain(maps.dark[pixel])) continue;
    maps.dark[pixel] = 0.0;
    maps.bad.resize(kPixels);
    maps.bad[pixel] = 1;
  }
  return maps;
}

std::vector<double> ReadDarkMap(const InputFile& file) { return ReadMapWithin(file, PixelReadingLimits::kDark); }

std::vector<double> ReadFlatMap(const InputFile& file) { return ReadMapWithin(file, PixelReadingLimits::kResponse); }

std::vector<std::uint8_t> ReadBadPixels(const InputFile& file) {
  const std::vector<double> map = ReadMap(file);
  std::vector<std::uint8_t> bad(map.size());
  std::ranges::transform(map, bad.begin(), [](double element) { return static_cast<std::uint8_t>(element != 0.0); });
  if (std::ranges::count(bad, 0) > 0) return bad;
  throw std::runtime_error(file.Name() + ": expected 0 for good pixels and other numbers for bad ones, found no 0");
}

}  // namespace quen::workbench
