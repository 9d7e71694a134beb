#include "tools/quen-shs/src/files/frame_file.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <stdexcept>

#include "common/fits/fits.hpp"
#include "tools/quen-shs/src/files/fits_content.hpp"

namespace quen_shs {
namespace {

using quen::common::Fits::Handle;

void RefuseBrightPixels(const std::string& path, const Frame& frame) {
  constexpr std::uint16_t kBrightest = std::numeric_limits<std::int16_t>::max();
  const auto bright = std::ranges::find_if(frame.pixels, [](std::uint16_t pixel) { return pixel > kBrightest; });
  if (bright == frame.pixels.end()) return;
  const auto index = static_cast<std::size_t>(bright - frame.pixels.begin());
  throw std::runtime_error(fmt::format(
      "{}: expected pixels up to {}, found {} at column {}, row {}; engines take pixels for signed numbers: scale the "
      "frame down, or subtract its background",
      path, kBrightest, *bright, index % frame.width, index / frame.width));
}

}  // namespace

Frame ReadFrame(const std::string& path) {
  RequireFits(path);
  const Handle file = quen::common::Fits::FitsFile(path, std::nullopt);
  const auto [axes, bitpix] = quen::common::Fits::ReadImgParams(file);
  if (axes.size() != 2 || bitpix != SHORT_IMG) {
    throw std::runtime_error(fmt::format(
        "{}: expected an image of two axes with BITPIX 16, found {} axes with BITPIX {}", path, axes.size(), bitpix));
  }
  constexpr double kUnsigned = 32768.0;
  const double scale = NumberKey(file, "BSCALE", 1.0);
  const double zero = NumberKey(file, "BZERO", 0.0);
  if (scale != 1.0 || (zero != 0.0 && zero != kUnsigned)) {
    throw std::runtime_error(fmt::format(
        "{}: expected BSCALE 1 and BZERO 0 or 32768, found {:g} and {:g}; write the frame as 16-bit integers", path,
        scale, zero));
  }
  Frame frame = {axes[0], axes[1], std::vector<std::uint16_t>(axes[0] * axes[1])};
  const int type = zero == kUnsigned ? TUSHORT : TSHORT;
  try {
    quen::common::Fits::ReadImgPriv(file, frame.pixels.data(), frame.pixels.size(), SHORT_IMG, type, std::nullopt);
  } catch (const std::runtime_error&) {
    fits_clear_errmsg();
    throw std::runtime_error(path + ": its pixels cannot be read; the file may be cut short");
  }
  if (zero == kUnsigned) RefuseBrightPixels(path, frame);
  return frame;
}

}  // namespace quen_shs
