#pragma once

#include <cstddef>
#include <gsl/span>
#include <string>
#include <vector>

#include "centroiders/pixel_reading.hpp"
#include "centroiders/src/pixels.hpp"
#include "common/simd/level.hpp"

namespace quen::centroiders {

/// A region's light, row by row. Rows are padded to whole blocks with pixels that do not count.
template <typename Number>
struct PatchOf {
  static constexpr std::size_t kUsualPixels = 16384;  ///< room for as many is made beforehand

  PatchOf() {
    light.reserve(kUsualPixels);
    response.reserve(kUsualPixels);
  }
  void Resize(std::size_t new_width, std::size_t new_height);

  std::size_t width = 0;
  std::size_t height = 0;
  std::size_t stride = 0;        ///< from row to row
  std::vector<Number> light;     ///< counts
  std::vector<Number> response;  ///< that of the flat map; 0 where the pixel does not count
};

/// In single precision.
using SinglePatch = PatchOf<float>;

/// As it is read.
struct Patch : PatchOf<double> {
  Patch() { bad.reserve(kUsualPixels); }

  std::vector<std::size_t> bad;    ///< elements whose light is made up
  bool counts_everywhere = false;  ///< every response is known to be 1
};

/// The same region in single precision. The same bits at all levels.
void Round(common::simd::Level level, const Patch& patch, SinglePatch& single);

/// Reads regions as a PixelReading says.
class PixelReader {
 public:
  /// @param engine  whose configuration the reading is part of
  /// @throws std::invalid_argument  a value out of its range, or maps of different sizes
  PixelReader(const std::string& engine, PixelReading reading);

  /// Bad pixels get the mean of their neighbours that count, or that are saturated; 0 where there are none. Saturated
  /// ones keep their light, which is the least that it can be.
  ///
  /// The same bits at all levels.
  void Read(common::simd::Level level, gsl::span<const std::uint16_t> frame, const image_processing::Roi& roi,
            Patch& patch) const;

 private:
  PixelReading reading_;  ///< whose bad pixels are also those without response
  double ceiling_;        ///< infinity for none
};

}  // namespace quen::centroiders
