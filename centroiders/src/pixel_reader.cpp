#include "centroiders/src/pixel_reader.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <gsl/assert>
#include <limits>
#include <utility>

#include "centroiders/src/block.hpp"
#include "centroiders/src/checks.hpp"
#include "centroiders/src/lanes.hpp"
#include "common/simd/vector_memory.hpp"

namespace quen::centroiders {
namespace {

using common::simd::Load;
using common::simd::Store;

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

// --- Rows. One source for all levels, each pixel by itself.

/// A row of a region, and of the maps beside it; null for a map that there is not.
struct Row {
  const std::int16_t* counts;
  std::size_t width;
  const double* dark;
  const double* flat;
  const std::uint8_t* bad;
};

struct Scale {
  PixelSign sign;
  double pedestal;
  double ceiling;
};

/// Light and response of W pixels from column x on.
template <std::size_t W>
QUEN_ALWAYS_INLINE void ReadPixels(const Row& row, const Scale& scale, std::size_t x, double* light, double* response,
                                   Words<W>& saturated) {
  using V = Doubles<W>;
  std::array<std::int32_t, W> pixels;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled at once
  for (std::size_t lane = 0; lane < W; ++lane) pixels[lane] = row.counts[x + lane];
  Ints32<W> whole;
  Load(whole, pixels.data());
  if (scale.sign == PixelSign::kUnsigned) whole &= 0xffff;
  V counts = __builtin_convertvector(whole, V);
  V l = counts - scale.pedestal;
  V r = counts < scale.ceiling ? V{} + 1.0 : V{};
  saturated |= counts >= scale.ceiling;
  if (row.dark != nullptr) {
    V dark;
    Load(dark, row.dark + x);
    l -= dark;
  }
  if (row.flat != nullptr) {
    V flat;
    Load(flat, row.flat + x);
    l /= flat;
    r *= flat;
  }
  Store(l, light + x);
  Store(r, response + x);
}

/// @return  whether a pixel is saturated
template <std::size_t W>
QUEN_ALWAYS_INLINE bool ReadRow(const Row& given_row, const Scale& given_scale, double* light, double* response) {
  const Row row = given_row;  // for all the compiler knows, what is written might change what is given
  const Scale scale = given_scale;
  Words<W> saturated = {};
  Words<1> saturated_rest = {};
  std::size_t x = 0;
  for (; x + W <= row.width; x += W) ReadPixels<W>(row, scale, x, light, response, saturated);
  for (; x < row.width; ++x) ReadPixels<1>(row, scale, x, light, response, saturated_rest);
  std::int64_t any = saturated_rest[0];
  for (std::size_t lane = 0; lane < W; ++lane) any |= saturated[lane];
  return any != 0;
}

bool ReadRowPlain(const Row& row, const Scale& scale, double* light, double* response) {
  return ReadRow<2>(row, scale, light, response);
}
QUEN_TARGET_AVX2 bool ReadRowAvx2(const Row& row, const Scale& scale, double* light, double* response) {
  return ReadRow<4>(row, scale, light, response);
}
QUEN_TARGET_AVX512 bool ReadRowAvx512(const Row& row, const Scale& scale, double* light, double* response) {
  return ReadRow<8>(row, scale, light, response);
}

// --- Single precision

/// Whole blocks of numbers.
QUEN_ALWAYS_INLINE void RoundBlocks(const double* from, std::size_t count, float* to) {
  for (std::size_t k = 0; k < count; k += kBlock) {
    for (std::size_t lane = 0; lane < kBlock; ++lane) to[k + lane] = static_cast<float>(from[k + lane]);
  }
}

void RoundPlain(const double* from, std::size_t count, float* to) { RoundBlocks(from, count, to); }
QUEN_TARGET_AVX2 void RoundAvx2(const double* from, std::size_t count, float* to) { RoundBlocks(from, count, to); }
QUEN_TARGET_AVX512 void RoundAvx512(const double* from, std::size_t count, float* to) { RoundBlocks(from, count, to); }

// --- Bad pixels

/// Whether some of these are not 0. Most often none is.
bool HasOther(const std::uint8_t* values, std::size_t count) {
  std::uint64_t any = 0;
  std::size_t k = 0;
  for (; k + sizeof(any) <= count; k += sizeof(any)) {
    std::uint64_t eight = 0;
    std::memcpy(&eight, values + k, sizeof(eight));
    any |= eight;
  }
  for (; k < count; ++k) any |= values[k];
  return any != 0;
}

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
  for (const std::size_t k : patch.bad) patch.light[k] = MeanAround(patch, k % patch.stride, k / patch.stride);
  for (const std::size_t k : patch.bad) patch.response[k] = 0.0;
}

}  // namespace

template <typename Number>
void PatchOf<Number>::Resize(std::size_t new_width, std::size_t new_height) {
  width = new_width;
  height = new_height;
  stride = WholeBlocks(width);
  light.resize(stride * height);
  response.resize(stride * height);
}
template struct PatchOf<double>;
template struct PatchOf<float>;

void Round(common::simd::Level level, const Patch& patch, SinglePatch& single) {
  const auto round = common::simd::Pick(level, RoundPlain, RoundAvx2, RoundAvx512);
  single.Resize(patch.width, patch.height);
  round(patch.light.data(), patch.light.size(), single.light.data());
  round(patch.response.data(), patch.response.size(), single.response.data());
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

/// In the padding there is no light, and nothing that counts.
void PixelReader::Read(common::simd::Level level, gsl::span<const std::uint16_t> frame,
                       const image_processing::Roi& roi, Patch& patch) const {
  const Pixels pixels = PixelsOf(frame, roi);
  for (const std::size_t size : {reading_.dark_map.size(), reading_.flat_map.size(), reading_.bad_pixels.size()}) {
    Expects(size == 0 || size == frame.size());
  }
  const auto read = common::simd::Pick(level, ReadRowPlain, ReadRowAvx2, ReadRowAvx512);
  const Scale scale = {reading_.sign, reading_.pedestal, ceiling_};
  const auto part = [](const auto& map, std::size_t first) { return map.empty() ? nullptr : map.data() + first; };
  patch.Resize(pixels.width, pixels.height);
  patch.bad.clear();
  patch.counts_everywhere = reading_.flat_map.empty() && reading_.bad_pixels.empty();
  for (std::size_t y = 0; y < pixels.height; ++y) {
    const std::size_t first = roi.x_low + pixels.stride * (roi.y_low + y);
    const Row row = {pixels.Row(y), pixels.width, part(reading_.dark_map, first), part(reading_.flat_map, first),
                     part(reading_.bad_pixels, first)};
    double* light = patch.light.data() + y * patch.stride;
    double* response = patch.response.data() + y * patch.stride;
    if (read(row, scale, light, response)) patch.counts_everywhere = false;
    if (row.bad != nullptr && HasOther(row.bad, pixels.width)) {
      for (std::size_t x = 0; x < pixels.width; ++x) {
        if (row.bad[x] == 0) continue;
        response[x] = kBad;
        patch.bad.push_back(x + y * patch.stride);
      }
    }
    std::fill(light + pixels.width, light + patch.stride, 0.0);
    std::fill(response + pixels.width, response + patch.stride, 0.0);
  }
  Mend(patch);
}

}  // namespace quen::centroiders
