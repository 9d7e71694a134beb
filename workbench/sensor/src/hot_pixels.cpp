#include "workbench/sensor/hot_pixels.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

#include "workbench/sensor/overlay.hpp"

namespace quen::workbench {
namespace {

constexpr double kNone = -std::numeric_limits<double>::infinity();

/// A frame's pixels.
struct Plane {
  const std::vector<double>& values;
  std::size_t width;

  [[nodiscard]] std::size_t Height() const { return values.size() / width; }
  [[nodiscard]] double At(std::size_t column, std::size_t row) const { return values[column + width * row]; }

  /// The brightest of the eight pixels around one; nothing is darker than at the frame's edge.
  [[nodiscard]] double MostAround(std::size_t column, std::size_t row) const {
    double most = kNone;
    for (std::size_t y = row - std::min<std::size_t>(row, 1); y < std::min(row + 2, Height()); ++y) {
      for (std::size_t x = column - std::min<std::size_t>(column, 1); x < std::min(column + 2, width); ++x) {
        if ((x != column || y != row) && At(x, y) > most) most = At(x, y);
      }
    }
    return most;
  }
};

/// Of some values; 0 if there are none.
double Median(std::vector<double>& values) {
  if (values.empty()) return 0.0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// What is bright in a region.
struct Bright {
  std::size_t column;
  std::size_t row;
  double value;
  double more;  ///< than its brightest neighbour
};

/// A region's place of the spot, and what its pixels are like.
struct Surroundings {
  Bright spot = {0, 0, kNone, 0.0};
  double level = 0.0;  ///< median
  double noise = 0.0;
  std::vector<Bright> peaks;  ///< pixels that are brighter than their neighbours
};

Surroundings Look(const Plane& plane, const Roi& roi) {
  constexpr double kDeviationPerMedian = 1.0484;  // of the difference of two normal numbers
  Surroundings found;
  std::vector<double> values;
  std::vector<double> steps;
  const std::size_t size = static_cast<std::size_t>(roi.x_up - roi.x_low) * (roi.y_up - roi.y_low);
  values.reserve(size);
  steps.reserve(size);
  found.peaks.reserve(size);
  for (std::size_t row = roi.y_low; row < roi.y_up; ++row) {
    for (std::size_t column = roi.x_low; column < roi.x_up; ++column) {
      const double value = plane.At(column, row);
      if (std::isnan(value)) continue;
      const double around = plane.MostAround(column, row);
      const double capped = std::min(value, around);
      values.push_back(value);
      if (column > roi.x_low && !std::isnan(plane.At(column - 1, row))) {
        steps.push_back(std::abs(value - plane.At(column - 1, row)));
      }
      if (value > around && around > kNone) found.peaks.push_back({column, row, value, value - around});
      if (capped > found.spot.value) found.spot = {column, row, capped, 0.0};
    }
  }
  found.level = Median(values);
  found.noise = kDeviationPerMedian * Median(steps);
  return found;
}

std::size_t Distance(std::size_t a, std::size_t b) { return a > b ? a - b : b - a; }

}  // namespace

void HotPixelSearch::Add(const std::vector<double>& values, std::size_t width, const std::vector<Roi>& rois,
                         const std::vector<std::uint8_t>& used) {
  constexpr double kNoises = 10.0;
  constexpr double kLeastNoise = 1.0;  // of rounding, where there is none to see
  constexpr double kOfTheSpot = 0.1;
  constexpr std::size_t kNear = 3;
  const Plane plane = {values, width};
  std::map<std::size_t, Pixel> here;
  used_ = 0;
  for (const std::size_t i : UsedIndices(used)) {
    const Roi& roi = rois[i];
    if (roi.x_up <= roi.x_low || roi.y_up <= roi.y_low) continue;
    if (roi.x_up > width || roi.y_up > plane.Height()) continue;
    ++used_;
    const Surroundings region = Look(plane, roi);
    const double least =
        std::max(kNoises * std::max(region.noise, kLeastNoise), kOfTheSpot * (region.spot.value - region.level));
    for (const Bright& peak : region.peaks) {
      const std::size_t away = std::max(Distance(peak.column, region.spot.column), Distance(peak.row, region.spot.row));
      if (peak.more < least || away <= kNear) continue;
      Pixel& pixel = here[peak.column + width * peak.row];
      pixel.frames = 1;
      pixel.spots.push_back(i);
      pixel.most = peak.more;
    }
  }
  for (const auto& [place, pixel] : here) {
    Pixel& known = bright_[place];
    ++known.frames;
    known.spots = pixel.spots;
    known.most = std::max(known.most, pixel.most);
  }
  width_ = width;
  ++frames_;
}

HotPixels HotPixelSearch::Found() const {
  constexpr std::size_t kMany = 3;  // frames
  constexpr double kOften = 0.75;
  constexpr double kFew = 0.2;  // of the regions
  const double least = (frames_ < kMany ? 1.0 : kOften) * static_cast<double>(frames_);
  HotPixels hot;
  double most = 0.0;
  std::set<std::size_t> spots;
  for (const auto& [place, pixel] : bright_) {
    if (static_cast<double>(pixel.frames) < least) continue;
    ++hot.pixels;
    spots.insert(pixel.spots.begin(), pixel.spots.end());
    if (pixel.most <= most) continue;
    most = pixel.most;
    hot.column = place % width_;
    hot.row = place / width_;
  }
  hot.spots = spots.size();
  if (frames_<kMany&& static_cast<double>(hot.spots)> kFew * static_cast<double>(used_)) return {};
  return hot;
}

}  // namespace quen::workbench
