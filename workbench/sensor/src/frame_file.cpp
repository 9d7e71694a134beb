#include "workbench/sensor/frame_file.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <stdexcept>

#include "common/fits/fits.hpp"
#include "workbench/fits/content.hpp"
#include "workbench/fits/memory_fits.hpp"

namespace quen::workbench {
namespace {

using quen::common::Fits::Handle;

void ReadPixels(const Handle& image, int type, const std::string& name, Frame& frame) {
  try {
    quen::common::Fits::ReadImgPriv(image, frame.pixels.data(), frame.pixels.size(), SHORT_IMG, type, std::nullopt);
  } catch (const std::runtime_error&) {
    fits_clear_errmsg();
    throw std::runtime_error(name + ": its pixels cannot be read; the file may be cut short");
  }
}

}  // namespace

Frame ReadFrame(const InputFile& file) {
  return Reading(file, [&] {
    const Handle image = OpenFits(file, std::nullopt);
    const auto [axes, bitpix] = quen::common::Fits::ReadImgParams(image);
    if (axes.size() != 2 || bitpix != SHORT_IMG) {
      throw std::runtime_error(
          fmt::format("{}: expected an image of two axes with BITPIX 16, found {} axes with BITPIX {}", file.Name(),
                      axes.size(), bitpix));
    }
    constexpr double kUnsigned = 32768.0;
    const double scale = NumberKey(file, image, "BSCALE", 1.0);
    const double zero = NumberKey(file, image, "BZERO", 0.0);
    if (scale != 1.0 || (zero != 0.0 && zero != kUnsigned)) {
      throw std::runtime_error(fmt::format(
          "{}: expected BSCALE 1 and BZERO 0 or 32768, found {:g} and {:g}; write the frame as 16-bit integers",
          file.Name(), scale, zero));
    }
    Frame frame = {axes[0], axes[1], std::vector<std::uint16_t>(axes[0] * axes[1]), zero == kUnsigned};
    ReadPixels(image, frame.is_unsigned ? TUSHORT : TSHORT, file.Name(), frame);
    return frame;
  });
}

void RequireSignedRange(const InputFile& file, const Frame& frame) {
  constexpr double kBrightest = std::numeric_limits<std::int16_t>::max();
  const auto bright =
      std::ranges::find_if(frame.pixels, [&](std::uint16_t pixel) { return frame.Value(pixel) > kBrightest; });
  if (bright == frame.pixels.end()) return;
  const auto index = static_cast<std::size_t>(bright - frame.pixels.begin());
  throw std::runtime_error(fmt::format(
      "{}: expected pixels up to {}, found {} at column {}, row {}; engines take pixels for signed numbers: scale the "
      "frame down, or subtract its background",
      file.Name(), kBrightest, *bright, index % frame.width, index / frame.width));
}

std::string FrameFile(const Camera& camera, const Exposure& exposure) {
  MemoryFits fits;
  const Frame frame = FrameOf(camera, exposure);
  quen::common::Fits::WriteImgPriv(fits.Image(), frame.pixels.data(), frame.pixels.size(),
                                   frame.is_unsigned ? USHORT_IMG : SHORT_IMG, frame.is_unsigned ? TUSHORT : TSHORT,
                                   {frame.width, frame.height});
  if (frame.is_unsigned) WriteExposureKeys(fits.Image(), exposure);
  return fits.Bytes();
}

Frame FrameOf(const Camera& camera, const Exposure& exposure) {
  return {quen::basesim::kFrameWidth, quen::basesim::kFrameHeight, camera.Frame(), exposure.detector != nullptr};
}

}  // namespace quen::workbench
