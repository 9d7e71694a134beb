#include "centroiders/src/pixel_reader.hpp"

#include <algorithm>
#include <gsl/assert>
#include <limits>
#include <utility>

#include "centroiders/src/block.hpp"
#include "centroiders/src/checks.hpp"

namespace quen::centroiders {
namespace {

std::string IndexInBrackets(std::size_t k) { return "[" + std::to_string(k) + "]"; }

/// A map and its name.
struct SizeOfMap {
  const char* name;
  std::size_t size;
};

/// @throws std::invalid_argument  neither is empty, and their sizes differ
void RequireSameSize(const std::string& engine, const SizeOfMap& first, const SizeOfMap& second) {
  if (first.size == 0 || second.size == 0 || first.size == second.size) return;
  throw std::invalid_argument(engine + ": " + second.name + " must have " + std::to_string(first.size) +
                              " elements as " + first.name + " has, found " + std::to_string(second.size));
}

constexpr double kLeastResponse = 0.001;
constexpr double kNoCeiling = std::numeric_limits<double>::infinity();
constexpr double kBad = -1.0;  // response of a bad pixel, until it is mended

/// The mean light of the pixels around (x, y) that are not bad; 0 where there is none.
double MeanAround(const Patch& patch, std::size_t x, std::size_t y) {
  double sum = 0.0;
  double number = 0.0;
  for (std::size_t row = y - std::min<std::size_t>(y, 1); row < std::min(y + 2, patch.height); ++row) {
    for (std::size_t column = x - std::min<std::size_t>(x, 1); column < std::min(x + 2, patch.width); ++column) {
      const std::size_t k = column + patch.stride * row;
      if (patch.response[k] == kBad) continue;
      sum += patch.light[k];
      number += 1.0;
    }
  }
  return number > 0.0 ? sum / number : 0.0;
}

void Mend(Patch& patch) {
  for (std::size_t y = 0; y < patch.height; ++y) {
    for (std::size_t x = 0; x < patch.width; ++x) {
      const std::size_t k = x + patch.stride * y;
      if (patch.response[k] == kBad) patch.light[k] = MeanAround(patch, x, y);
    }
  }
  std::ranges::replace(patch.response, kBad, 0.0);
}

}  // namespace

Patch::Patch() {
  light.reserve(kUsualPixels);
  response.reserve(kUsualPixels);
}

void Patch::Resize(std::size_t new_width, std::size_t new_height) {
  width = new_width;
  height = new_height;
  stride = WholeBlocks(width);
  light.resize(stride * height);
  response.resize(stride * height);
}

PixelReader::PixelReader(const std::string& engine, PixelReading reading)
    : reading_(std::move(reading)), ceiling_(reading_.ceiling.value_or(kNoCeiling)) {
  using Limits = PixelReadingLimits;
  RequireWithin(engine + ": pedestal", reading_.pedestal, Limits::kPedestal);
  if (reading_.ceiling) RequireWithin(engine + ": ceiling", *reading_.ceiling, Limits::kCeiling);
  RequireElementsWithin(engine + ": dark_map", reading_.dark_map, Limits::kDark, IndexInBrackets);
  RequireElementsWithin(engine + ": flat_map", reading_.flat_map, Limits::kResponse, IndexInBrackets);
  const SizeOfMap dark = {"dark_map", reading_.dark_map.size()};
  const SizeOfMap flat = {"flat_map", reading_.flat_map.size()};
  const SizeOfMap bad = {"bad_pixels", reading_.bad_pixels.size()};
  RequireSameSize(engine, dark, flat);
  RequireSameSize(engine, dark, bad);
  RequireSameSize(engine, flat, bad);
  if (flat.size > 0) reading_.bad_pixels.resize(flat.size);
  for (std::size_t k = 0; k < flat.size; ++k) {
    if (reading_.flat_map[k] >= kLeastResponse) continue;
    reading_.bad_pixels[k] = 1;
    reading_.flat_map[k] = 1.0;  // which may divide
  }
}

void PixelReader::ReadRow(const Pixels& pixels, std::size_t y, std::size_t first, double* light,
                          double* response) const {
  const std::int16_t* row = pixels.Row(y);
  const double pedestal = reading_.pedestal;  // for all the compiler knows, what is written might change the members
  const double ceiling = ceiling_;
  const auto read = [&](auto count_of) {
    for (std::size_t x = 0; x < pixels.width; ++x) light[x] = count_of(row[x]) - pedestal;
    if (ceiling == kNoCeiling) {
      std::fill(response, response + pixels.width, 1.0);
      return;
    }
    for (std::size_t x = 0; x < pixels.width; ++x) response[x] = count_of(row[x]) < ceiling ? 1.0 : 0.0;
  };
  if (reading_.sign == PixelSign::kSigned) {
    read([](std::int16_t pixel) { return static_cast<double>(pixel); });
  } else {
    read([](std::int16_t pixel) { return static_cast<double>(static_cast<std::uint16_t>(pixel)); });
  }
  if (!reading_.dark_map.empty()) {
    for (std::size_t x = 0; x < pixels.width; ++x) light[x] -= reading_.dark_map[first + x];
  }
  if (!reading_.flat_map.empty()) {
    for (std::size_t x = 0; x < pixels.width; ++x) {
      light[x] /= reading_.flat_map[first + x];
      response[x] *= reading_.flat_map[first + x];
    }
  }
  if (!reading_.bad_pixels.empty()) {
    for (std::size_t x = 0; x < pixels.width; ++x)
      response[x] = reading_.bad_pixels[first + x] != 0 ? kBad : response[x];
  }
}

/// In the padding there is no light, and nothing that counts.
void PixelReader::Read(gsl::span<const std::uint16_t> frame, const image_processing::Roi& roi, Patch& patch) const {
  const Pixels pixels = PixelsOf(frame, roi);
  for (const std::size_t size : {reading_.dark_map.size(), reading_.flat_map.size(), reading_.bad_pixels.size()}) {
    Expects(size == 0 || size == frame.size());
  }
  patch.Resize(pixels.width, pixels.height);
  patch.counts_everywhere = reading_.flat_map.empty() && reading_.bad_pixels.empty();
  for (std::size_t y = 0; y < pixels.height; ++y) {
    const std::size_t first = roi.x_low + pixels.stride * (roi.y_low + y);
    double* light = patch.light.data() + y * patch.stride;
    double* response = patch.response.data() + y * patch.stride;
    ReadRow(pixels, y, first, light, response);
    if (ceiling_ != kNoCeiling && std::find(response, response + pixels.width, 0.0) != response + pixels.width) {
      patch.counts_everywhere = false;
    }
    std::fill(light + pixels.width, light + patch.stride, 0.0);
    std::fill(response + pixels.width, response + patch.stride, 0.0);
  }
  if (!reading_.bad_pixels.empty()) Mend(patch);
}

}  // namespace quen::centroiders
