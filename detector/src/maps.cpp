#include "detector/maps.hpp"

#include <algorithm>

#include "detector/src/checks.hpp"
#include "detector/src/elementary.hpp"
#include "detector/src/normal.hpp"
#include "detector/src/philox.hpp"

namespace quen::detector {

std::vector<double> DrawFlatMap(std::uint64_t seed, double rms) {
  RequireWithin("DrawFlatMap: rms", rms, MapLimits::kFlatRms);
  std::vector<double> map(kPixels);
  for (std::uint32_t pixel = 0; pixel < kPixels; ++pixel) {
    const Words words = Draw({seed, 0}, Stage::kFlatMap, pixel);
    const float u = IsInTail(words[0]) ? UniformOf(words[0], words[2]) : UniformOf(words[0]);
    map[pixel] = std::max(1.0 + rms * static_cast<double>(NormalsOf(u, words[1]).first), 0.0);
  }
  return map;
}

void AddHotPixels(std::uint64_t seed, double per_million, double mean_level, DetectorConfig& config) {
  RequireWithin("AddHotPixels: per_million", per_million, MapLimits::kHotPixels);
  RequireWithin("AddHotPixels: mean_level", mean_level, MapLimits::kHotLevel);
  RequireSize("AddHotPixels: bad_pixels", config.bad_pixels.size());
  RequireSize("AddHotPixels: bad_pixel_levels", config.bad_pixel_levels.size());
  config.bad_pixels.resize(kPixels, PixelState::kGood);
  config.bad_pixel_levels.resize(kPixels, 0.0);
  for (std::uint32_t pixel = 0; pixel < kPixels; ++pixel) {
    const Words words = Draw({seed, 0}, Stage::kHotPixels, pixel);
    if (words[0] * 0x1p-32 * 1e6 >= per_million || config.bad_pixels[pixel] != PixelState::kGood) continue;
    config.bad_pixels[pixel] = PixelState::kHot;
    config.bad_pixel_levels[pixel] = -mean_level * Log((words[1] + 0.5) * 0x1p-32);
  }
}

}  // namespace quen::detector
