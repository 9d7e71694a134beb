#include "workbench/sensor/frame_file.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <utility>

#include "common/fits/fits.hpp"
#include "workbench/fits/content.hpp"
#include "workbench/fits/memory_fits.hpp"
#include "workbench/sensor/dimensions.hpp"

namespace quen::workbench {
namespace {

using quen::centroiders::PixelSign;
using quen::common::Fits::Handle;

constexpr double kLowestSigned = std::numeric_limits<std::int16_t>::min();
constexpr double kHighestUnsigned = std::numeric_limits<std::uint16_t>::max();

/// @throws std::runtime_error  a pixel is no whole number in this range
void RequirePixels(const std::string& name, const std::vector<double>& pixels, std::size_t width, double lowest,
                   double highest) {
  const auto is_wrong = [&](double pixel) {
    return !(pixel >= lowest && pixel <= highest) || pixel != std::rint(pixel);
  };
  const auto wrong = std::ranges::find_if(pixels, is_wrong);
  if (wrong == pixels.end()) return;
  const auto index = static_cast<std::size_t>(wrong - pixels.begin());
  throw std::runtime_error(
      fmt::format("{}: expected pixels that are whole numbers from {:.0f} to {:.0f}, found {:g} at column {}, row {}",
                  name, lowest, highest, *wrong, index % width, index / width));
}

/// Tells pixels without a value, and gives them 0.
/// @return  empty if all have one
/// @throws std::runtime_error  none has
std::vector<std::uint8_t> TakeBlanks(const std::string& name, std::vector<double>& pixels) {
  const auto is_blank = [](double pixel) { return std::isnan(pixel); };
  const auto blanks = std::ranges::count_if(pixels, is_blank);
  if (blanks == 0) return {};
  if (blanks == std::ssize(pixels)) throw std::runtime_error(name + ": expected pixels with values, found none");
  std::vector<std::uint8_t> blank(pixels.size());
  std::ranges::transform(pixels, blank.begin(), is_blank);
  std::ranges::replace_if(pixels, is_blank, 0.0);
  return blank;
}

std::vector<std::size_t> AxesOf(const InputFile& file, const Handle& image) {
  return Reading(file, [&] { return quen::common::Fits::ReadImgParams(image).first; });
}

}  // namespace

std::vector<double> Frame::Values() const {
  std::vector<double> values;
  values.reserve(pixels.size());
  for (const std::uint16_t pixel : pixels) values.push_back(Value(pixel));
  for (std::size_t k = 0; k < blank.size(); ++k) {
    if (blank[k] != 0) values[k] = std::numeric_limits<double>::quiet_NaN();
  }
  return values;
}

FrameReader::FrameReader(const InputFile& file, const std::string& extension)
    : file_(file), image_(OpenImage(file, extension)), axes_(AxesOf(file, image_)) {
  if (axes_.size() == 2 || axes_.size() == 3) return;
  throw std::runtime_error(
      fmt::format("{}: expected a frame, an image of two axes, or a cube of frames, of three; "
                  "found {} axes",
                  file.Name(), axes_.size()));
}

Frame FrameReader::Read(std::size_t number) const {
  std::vector<double> pixels(Width() * Height());
  const std::optional<std::size_t> plane = axes_.size() == 3 ? std::optional(number) : std::nullopt;
  ReadElements(file_, image_, plane, pixels);
  std::vector<std::uint8_t> blank = TakeBlanks(file_.Name(), pixels);
  constexpr double kUnsigned = 32768.0;
  const bool is_unsigned = NumberKey(file_, image_, "BZERO", 0.0) == kUnsigned ||
                           std::ranges::any_of(pixels, [](double pixel) { return pixel > kHighestSigned; });
  RequirePixels(file_.Name(), pixels, Width(), is_unsigned ? 0.0 : kLowestSigned,
                is_unsigned ? kHighestUnsigned : kHighestSigned);
  Frame frame = {Width(), Height(), std::vector<std::uint16_t>(pixels.size()), is_unsigned, std::move(blank)};
  std::ranges::transform(pixels, frame.pixels.begin(),
                         [](double pixel) { return static_cast<std::uint16_t>(static_cast<std::int32_t>(pixel)); });
  return frame;
}

void FrameReader::CopyDetectorKeysTo(const Handle& file) const { CopyDetectorKeys(file_, image_, file); }

void RequireSensorSize(const FrameReader& frames) {
  if (frames.Count() == 0) throw std::runtime_error(frames.Name() + ": expected frames, found a cube of none");
  if (frames.Width() == kFrameWidth && frames.Height() == kFrameHeight) return;
  throw std::runtime_error(fmt::format("{}: expected a frame of {} x {} pixels (columns x rows), found {} x {}",
                                       frames.Name(), kFrameWidth, kFrameHeight, frames.Width(), frames.Height()));
}

Frame ReadFrame(const InputFile& file) {
  const FrameReader frames(file, "");
  if (frames.Count() != 1) {
    throw std::runtime_error(fmt::format("{}: expected one frame, found {}", file.Name(), frames.Count()));
  }
  return frames.Read(0);
}

std::string FrameFile(const Camera& camera, const Exposure& exposure) {
  MemoryFits fits;
  const std::vector<std::uint16_t>& pixels = camera.Frame();
  const bool is_unsigned = exposure.Sign() == PixelSign::kUnsigned;
  quen::common::Fits::WriteImgPriv(fits.Image(), pixels.data(), pixels.size(), is_unsigned ? USHORT_IMG : SHORT_IMG,
                                   is_unsigned ? TUSHORT : TSHORT, {kFrameWidth, kFrameHeight});
  WriteExposureOfDetector(fits.Image(), exposure);
  return fits.Bytes();
}

Frame FrameOf(const Camera& camera, const Exposure& exposure) {
  return {kFrameWidth, kFrameHeight, camera.Frame(), exposure.Sign() == PixelSign::kUnsigned};
}

}  // namespace quen::workbench
