#include "workbench/sensor/geometry.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numbers>
#include <numeric>
#include <stdexcept>
#include <string>

#include "workbench/sensor/dimensions.hpp"

namespace quen::workbench {
namespace {

/// First pixel of the grid's first region along an axis of this many pixels.
double First(const Geometry& geometry, std::size_t pixels, double offset) {
  const double extent = (kGridSize - 1) * geometry.pitch + geometry.size;
  return std::floor((static_cast<double>(pixels) - extent) / 2.0) + offset;
}

/// Whether a point is in the shadow of the spider; in pupil coordinates.
bool IsBehindSpider(const Geometry& geometry, double x, double y) {
  if (!geometry.spider_angle) return false;
  const double angle = *geometry.spider_angle * std::numbers::pi / 180.0;
  const double along = x * std::cos(angle) + y * std::sin(angle);
  const double across = y * std::cos(angle) - x * std::sin(angle);
  return std::min(std::abs(along), std::abs(across)) < geometry.spider_width;  // half a vane; the diameter is 2
}

void CheckAxis(const char* axis, const Geometry& geometry, double first, std::size_t pixels) {
  const long low = std::lround(first);
  const long up = std::lround(first + (kGridSize - 1) * geometry.pitch) + geometry.size;
  if (low >= 0 && up <= static_cast<long>(pixels)) return;
  throw std::invalid_argument("the grid does not fit on the frame: its " + std::string(axis) + "s go from " +
                              std::to_string(low) + " to " + std::to_string(up - 1) + ", the frame's from 0 to " +
                              std::to_string(pixels - 1) + "; change the pitch, the size or the offset");
}

constexpr int kPoints = 24;  // of a sub-aperture, along each axis

/// The least and the greatest squared distance of a sub-aperture's points from the pupil's centre, in squared steps
/// from point to point. Most sub-apertures are wholly lit, or not at all, and need no look at every point.
std::pair<double, double> SquaredDistances(int column, int row) {
  constexpr double kHalf = 0.5 * (kPoints - 1);
  const auto nearest = [](int k) { return k == 0 ? 0.5 : kPoints * std::abs(k) - kHalf; };
  const auto farthest = [](int k) { return kPoints * std::abs(k) + kHalf; };
  const auto square = [&](auto distance) {
    return distance(column) * distance(column) + distance(row) * distance(row);
  };
  return {square(nearest), square(farthest)};
}

/// The first of the sub-apertures that are as far from the middle along the two axes, or along the other ones: eight of
/// them or fewer, on which a pupil without a spider looks the same.
std::size_t FirstAlike(std::size_t i) {
  const auto [least, most] = std::minmax({std::abs(ColumnsFromMiddle(i)), std::abs(RowsFromMiddle(i))});
  return kGridSize * static_cast<std::size_t>(16 - most) + static_cast<std::size_t>(16 - least);
}

}  // namespace

Cell CellAt(const Geometry& geometry, std::size_t i) {
  const double middle = (geometry.size - 1) / 2.0;
  const int column = ColumnsFromMiddle(i) + 16;
  const int row = RowsFromMiddle(i) + 16;
  const double x = First(geometry, kFrameWidth, geometry.offset_x) + geometry.pitch * column;
  const double y = First(geometry, kFrameHeight, geometry.offset_y) + geometry.pitch * row;
  return {static_cast<int>(std::lround(x)), static_cast<int>(std::lround(y)), x + middle, y + middle};
}

int LitPoints(const Geometry& geometry, std::size_t i) {
  constexpr double kOuter = kPoints * kPupilRadius;  // in steps from point to point
  const double inner = geometry.obscuration * kOuter;
  const int column = ColumnsFromMiddle(i);
  const int row = RowsFromMiddle(i);
  const auto [nearest, farthest] = SquaredDistances(column, row);
  if (nearest > kOuter * kOuter || farthest < inner * inner) return 0;
  if (nearest >= inner * inner && farthest <= kOuter * kOuter && !geometry.spider_angle) return kPoints * kPoints;
  int lit = 0;
  for (int b = 0; b < kPoints; ++b) {
    for (int a = 0; a < kPoints; ++a) {
      // From the pupil's centre: a multiple of one half, so symmetric sub-apertures tie exactly.
      const double x = kPoints * column + a - 11.5;
      const double y = kPoints * row + b - 11.5;
      const double r2 = x * x + y * y;
      const bool in_pupil = r2 >= inner * inner && r2 <= kOuter * kOuter;
      if (in_pupil && !IsBehindSpider(geometry, x / kOuter, y / kOuter)) ++lit;
    }
  }
  return lit;
}

std::vector<std::uint8_t> UsedFlags(const Geometry& geometry) {
  std::vector<int> lit(kNumRois);
  for (std::size_t i = 0; i < lit.size(); ++i) {
    const std::size_t first = geometry.spider_angle ? i : FirstAlike(i);
    lit[i] = first < i ? lit[first] : LitPoints(geometry, i);
  }
  const auto any_light = std::ranges::count_if(lit, [](int points) { return points > 0; });
  if (any_light < static_cast<std::ptrdiff_t>(kNumRoisUsed)) {
    throw std::invalid_argument("only " + std::to_string(any_light) + " sub-apertures are lit, and " +
                                std::to_string(kNumRoisUsed) + " must be; choose a smaller obscuration or spider");
  }
  std::vector<std::size_t> by_light(lit.size());
  std::iota(by_light.begin(), by_light.end(), std::size_t{0});
  std::stable_sort(by_light.begin(), by_light.end(), [&](std::size_t a, std::size_t b) { return lit[a] > lit[b]; });

  std::vector<std::uint8_t> used(lit.size(), 0);
  for (std::size_t k = 0; k < kNumRoisUsed; ++k) used[by_light[k]] = 1;
  return used;
}

void CheckFits(const Geometry& geometry) {
  CheckAxis("column", geometry, First(geometry, kFrameWidth, geometry.offset_x), kFrameWidth);
  CheckAxis("row", geometry, First(geometry, kFrameHeight, geometry.offset_y), kFrameHeight);
}

}  // namespace quen::workbench
