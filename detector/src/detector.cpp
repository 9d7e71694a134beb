#include "detector/detector.hpp"

#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

#include "common/simd/level.hpp"
#include "detector/src/checks.hpp"
#include "detector/src/exposure.hpp"
#include "detector/src/plan.hpp"

namespace quen::detector {
namespace {

using Limits = DetectorLimits;

double HighestCount(const DetectorConfig& config) { return std::ldexp(1.0, config.bits) - 1.0; }

PixelState StateOf(const DetectorConfig& config, std::size_t pixel) {
  return config.bad_pixels.empty() ? PixelState::kGood : config.bad_pixels[pixel];
}

double ElementOr(const std::vector<double>& map, std::size_t pixel, double otherwise) {
  return map.empty() ? otherwise : map[pixel];
}

void RequireMap(const std::string& name, const std::vector<double>& map, const common::Limits& limits) {
  RequireSize("Detector: " + name, map.size());
  RequireElementsWithin("Detector: " + name, map, limits, PlaceOf);
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
    RequireWithin("Detector: bad_pixel_levels" + PlaceOf(pixel), config.bad_pixel_levels[pixel],
                  state == PixelState::kHot ? Limits::kElectrons : common::Limits{0.0, HighestCount(config)});
  }
  if (!has_good) throw std::invalid_argument("Detector: bad_pixels must leave a good pixel, found none");
}

void Check(const DetectorConfig& config) {
  RequireWithin("Detector: electrons_per_unit", config.electrons_per_unit, Limits::kElectronsPerUnit);
  RequireWithin("Detector: background", config.background, Limits::kElectrons);
  RequireWithin("Detector: dark", config.dark, Limits::kElectrons);
  RequireWithin("Detector: em_gain", config.em_gain, Limits::kEmGain);
  RequireWithin("Detector: read_noise", config.read_noise, Limits::kReadNoise);
  if (config.full_well) RequireWithin("Detector: full_well", *config.full_well, Limits::kFullWell);
  RequireWithin("Detector: gain", config.gain, Limits::kGain);
  RequireWithin("Detector: offset", config.offset, Limits::kOffset);
  RequireWithin("Detector: bits", config.bits, Limits::kBits);
  RequireMap("flat_map", config.flat_map, Limits::kResponse);
  RequireMap("dark_map", config.dark_map, Limits::kElectrons);
  RequireMap("offset_map", config.offset_map, Limits::kOffset);
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
