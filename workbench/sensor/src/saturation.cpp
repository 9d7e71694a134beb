#include "workbench/sensor/saturation.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

#include "workbench/sensor/overlay.hpp"

namespace quen::workbench {
namespace {

constexpr double kNoCount = -std::numeric_limits<double>::infinity();

/// The brightest pixels of a region, and the dimmest one.
struct Tops {
  double highest = kNoCount;
  double lowest = -kNoCount;
  std::size_t pixels = 0;  ///< that are the brightest
};

Tops TopsOf(const Frame& frame, const std::vector<double>& values, const Roi& roi) {
  Tops tops;
  for (std::size_t row = roi.y_low; row < roi.y_up; ++row) {
    for (std::size_t column = roi.x_low; column < roi.x_up; ++column) {
      const std::size_t k = column + frame.width * row;
      if (std::isnan(values[k])) continue;
      const double count = frame.Value(frame.pixels[k]);
      if (count > tops.highest) tops = {count, tops.lowest, 0};
      if (count == tops.highest) ++tops.pixels;
      tops.lowest = std::min(tops.lowest, count);
    }
  }
  return tops;
}

/// Whether a converter of some bits gives no more than this.
bool IsMostOfAConverter(double counts) {
  constexpr double kLeast = 255.0;
  constexpr double kMost = 65535.0;
  return counts >= kLeast && counts <= kMost && std::has_single_bit(static_cast<unsigned>(counts) + 1U);
}

bool IsFlat(const Tops& tops) {
  constexpr std::size_t kFlat = 5;  // four may be equally far from a spot's centre
  constexpr double kHigh = 100.0;   // where the steps of a spot are more than one count
  return tops.pixels >= kFlat && tops.highest - tops.lowest >= kHigh;
}

}  // namespace

Saturation SaturationOf(const Frame& frame, const std::vector<double>& values, const std::vector<Roi>& rois,
                        const std::vector<std::uint8_t>& used) {
  std::vector<Tops> regions;
  double highest = kNoCount;
  for (const std::size_t i : UsedIndices(used)) {
    const Roi& roi = rois[i];
    if (roi.x_up > frame.width || roi.y_up > frame.height) continue;
    regions.push_back(TopsOf(frame, values, roi));
    highest = std::max(highest, regions.back().highest);
  }
  Saturation saturation = {highest, 0};
  std::size_t pixels = 0;
  bool is_any_flat = false;
  for (const Tops& tops : regions) {
    if (tops.highest != highest || tops.pixels == 0) continue;
    ++saturation.spots;
    pixels += tops.pixels;
    is_any_flat = is_any_flat || IsFlat(tops);
  }
  const bool is_ceiling = is_any_flat || (IsMostOfAConverter(highest) && pixels > 1);
  return is_ceiling ? saturation : Saturation();
}

}  // namespace quen::workbench
