#include "centroiders/brightest_pixels.hpp"

#include <algorithm>
#include <cmath>

#include "centroiders/src/brightness.hpp"
#include "centroiders/src/checks.hpp"
#include "centroiders/src/moments.hpp"

namespace quen::centroiders {
namespace {

constexpr auto kFewest = static_cast<std::size_t>(BrightestPixelsLimits::kNumber.lowest);

/// How many of a region's pixels to take.
std::size_t Number(const BrightestPixelsConfig& config, std::size_t pixels) {
  const std::size_t number =
      config.number ? *config.number
                    : static_cast<std::size_t>(std::lround(*config.fraction * static_cast<double>(pixels)));
  return std::min(std::max(number, kFewest), pixels);
}

}  // namespace

BrightestPixels::BrightestPixels(const BrightestPixelsConfig& config) : config_(config) {
  if (config.number.has_value() == config.fraction.has_value()) {
    throw std::invalid_argument("BrightestPixels: exactly one of number and fraction must be given, found " +
                                std::string(config.number ? "both" : "none"));
  }
  using Limits = BrightestPixelsLimits;
  if (config.number) RequireWithin("BrightestPixels: number", static_cast<double>(*config.number), Limits::kNumber);
  if (config.fraction) RequireWithin("BrightestPixels: fraction", *config.fraction, Limits::kFraction);
}

void BrightestPixels::Measure(const Pixels& pixels, const Point& reference) {
  const common::simd::Level level = common::simd::Best();
  dimmest_ = RankedValue(level, pixels, Number(config_, pixels.width * pixels.height), dimmest_);
  const Centroid centroid = CentroidOf(MomentsAbove(level, pixels, dimmest_), dimmest_, reference);
  flux = centroid.flux;
  x = centroid.x - reference.x;
  y = centroid.y - reference.y;
}

}  // namespace quen::centroiders
