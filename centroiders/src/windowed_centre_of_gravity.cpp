#include "centroiders/windowed_centre_of_gravity.hpp"

#include <algorithm>
#include <cmath>

#include "centroiders/src/brightness.hpp"
#include "centroiders/src/checks.hpp"
#include "centroiders/src/moments.hpp"

namespace quen::centroiders {
namespace {

/// Columns or rows [low, up) of those that there are.
struct Range {
  std::size_t low;
  std::size_t up;
};

/// Those at most `half_width` from the centre.
Range Around(double centre, double half_width, std::size_t size) {
  const auto limit = static_cast<double>(size);
  const double low = std::clamp(std::ceil(centre - half_width), 0.0, limit);
  const double up = std::clamp(std::floor(centre + half_width) + 1.0, low, limit);
  return {static_cast<std::size_t>(low), static_cast<std::size_t>(up)};
}

}  // namespace

WindowedCentreOfGravity::WindowedCentreOfGravity(const WindowedCentreOfGravityConfig& config) : config_(config) {
  RequireWithin("WindowedCentreOfGravity: half_width", config.half_width, WindowedCentreOfGravityLimits::kHalfWidth);
}

void WindowedCentreOfGravity::Measure(const Pixels& pixels, const Point& reference) {
  const common::simd::Level level = common::simd::Best();
  const bool follows = config_.around == WindowCentre::kBrightestPixel;
  if (!follows && LacksReference(reference)) return;
  const Point centre = follows ? BrightestPoint(level, pixels) : reference;
  const Range columns = Around(centre.x, config_.half_width, pixels.width);
  const Range rows = Around(centre.y, config_.half_width, pixels.height);
  const Moments moments = MomentsAbove(level, pixels.Part(columns.low, columns.up, rows.low, rows.up), kEveryPixel);
  const Point corner = {static_cast<double>(columns.low), static_cast<double>(rows.low)};
  const Point from_corner = {reference.x - corner.x, reference.y - corner.y};
  const Centroid centroid = CentroidOf(moments, 0.0, from_corner);
  flux = centroid.flux;
  x = centroid.x - from_corner.x;
  y = centroid.y - from_corner.y;
}

}  // namespace quen::centroiders
