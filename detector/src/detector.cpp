#include "detector/detector.hpp"

#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

#include "common/simd/level.hpp"
#include "detector/src/checks.hpp"
#include "detector/src/exposure.hpp"
#include "detector/src/plan.hpp"
#include "detector/src/poisson.hpp"

namespace quen::detector {
namespace {

constexpr double kFarthestOffset = 65535.0;  // counts

double HighestCount(const DetectorConfig& config) { return std::ldexp(1.0, config.bits) - 1.0; }

PixelState StateOf(const DetectorConfig& config, std::size_t pixel) {
  return config.bad_pixels.empty() ? PixelState::kGood : config.bad_pixels[pixel];
}

double ElementOr(const std::vector<double>& map, std::size_t pixel, double otherwise) {
  return map.empty() ? otherwise : map[pixel];
}

void RequireMap(const std::string& name, const std::vector<double>& map, double lowest, double highest) {
  RequireSize("Detector: " + name, map.size());
  for (std::size_t pixel = 0; pixel < map.size(); ++pixel) {
    if (map[pixel] >= lowest && map[pixel] <= highest) continue;
    RequireInRange("Detector: " + name + PlaceOf(pixel), map[pixel], lowest, highest);
  }
}

void CheckBadPixels(const DetectorConfig& config) {
  RequireSize("Detector: bad_pixels", config.bad_pixels.size());
  RequireSize("Detector: bad_pixel_levels", config.bad_pixel_levels.size());
  bool has_good = config.bad_pixels.empty();
  for (std::size_t pixel = 0; pixel < config.bad_pixels.size(); ++pixel) {
    const PixelState state = config.bad_pixels[pixel];
    if (state > PixelState::kStuck) {
      throw std::invalid_argument("Detector: bad_pixels" + PlaceOf(pixel) +
                                  " must be 0 (good), 1 (dead), 2 (hot) or 3 (stuck), found " +
                                  std::to_string(static_cast<int>(state)));
    }
    has_good = has_good || state == PixelState::kGood;
    if (state != PixelState::kHot && state != PixelState::kStuck) continue;
    if (config.bad_pixel_levels.empty()) {
      throw std::invalid_argument("Detector: bad_pixel_levels must have " + std::to_string(kPixels) +
                                  " elements where a pixel is hot or stuck, found 0");
    }
    const double highest = state == PixelState::kHot ? kMostElectrons : HighestCount(config);
    RequireInRange("Detector: bad_pixel_levels" + PlaceOf(pixel), config.bad_pixel_levels[pixel], 0.0, highest);
  }
  if (!has_good) throw std::invalid_argument("Detector: bad_pixels must leave a good pixel, found none");
}

void Check(const DetectorConfig& config) {
  RequireInRange("Detector: electrons_per_unit", config.electrons_per_unit, 0.0, 1e6);
  RequireInRange("Detector: background", config.background, 0.0, kMostElectrons);
  RequireInRange("Detector: dark", config.dark, 0.0, kMostElectrons);
  RequireInRange("Detector: em_gain", config.em_gain, 1.0, 1e4);
  RequireInRange("Detector: read_noise", config.read_noise, 0.0, 1e6);
  if (config.full_well) RequireAboveZero("Detector: full_well", *config.full_well, kMostElectrons);
  RequireAboveZero("Detector: gain", config.gain, 1e6);
  RequireInRange("Detector: offset", config.offset, -kFarthestOffset, kFarthestOffset);
  RequireInRange("Detector: bits", config.bits, 1.0, 16.0);
  RequireMap("flat_map", config.flat_map, 0.0, 1000.0);
  RequireMap("dark_map", config.dark_map, 0.0, kMostElectrons);
  RequireMap("offset_map", config.offset_map, -kFarthestOffset, kFarthestOffset);
  CheckBadPixels(config);
}

/// What light does in a pixel, and what is there without any.
struct PixelResponse {
  double response;
  double dark;
};

PixelResponse ResponseOf(const DetectorConfig& config, std::size_t pixel) {
  const PixelState state = StateOf(config, pixel);
  if (state == PixelState::kDead) return {0.0, 0.0};
  const double flat = ElementOr(config.flat_map, pixel, 1.0);
  const double hot = state == PixelState::kHot ? config.bad_pixel_levels[pixel] : 0.0;
  return {flat * config.electrons_per_unit,
          flat * config.background + config.dark + ElementOr(config.dark_map, pixel, 0.0) + hot};
}

Plan PlanOf(const DetectorConfig& config) {
  Check(config);
  Plan plan{};
  if (config.flat_map.empty() && config.dark_map.empty() && config.bad_pixels.empty()) {
    const PixelResponse all = ResponseOf(config, 0);
    plan.response = PerPixel(all.response);
    plan.dark = PerPixel(all.dark);
  } else {
    std::vector<double> response(kPixels);
    std::vector<double> dark(kPixels);
    for (std::size_t pixel = 0; pixel < kPixels; ++pixel) {
      const PixelResponse one = ResponseOf(config, pixel);
      response[pixel] = one.response;
      dark[pixel] = one.dark;
      if (StateOf(config, pixel) == PixelState::kStuck) {
        plan.stuck.push_back({pixel, static_cast<std::uint16_t>(std::nearbyint(config.bad_pixel_levels[pixel]))});
      }
    }
    plan.response = PerPixel(std::move(response));
    plan.dark = PerPixel(std::move(dark));
  }
  std::vector<double> offset = config.offset_map;
  for (double& element : offset) element += config.offset;
  plan.offset = offset.empty() ? PerPixel(config.offset) : PerPixel(std::move(offset));
  plan.photon_noise = config.photon_noise;
  plan.em_gain = config.em_gain;
  plan.read_noise = config.read_noise;
  plan.full_well = config.full_well.value_or(std::numeric_limits<double>::infinity());
  plan.gain = config.gain;
  plan.highest = HighestCount(config);
  plan.seed = config.seed;
  return plan;
}

}  // namespace

Detector::Detector(const DetectorConfig& config) : plan_(std::make_shared<const Plan>(PlanOf(config))) {}

void Detector::Expose(gsl::span<const double> values, std::uint64_t frame_number,
                      gsl::span<std::uint16_t> frame) const {
  RequireLength("Detector: values", values.size());
  RequireLength("Detector: frame", frame.size());
  detector::Expose(common::simd::Best(), *plan_, values.data(), frame_number, frame.data());
}

}  // namespace quen::detector
