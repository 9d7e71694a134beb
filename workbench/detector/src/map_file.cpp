#include "workbench/detector/map_file.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>

#include "common/fits/fits.hpp"
#include "workbench/fits/content.hpp"
#include "workbench/fits/header.hpp"
#include "workbench/fits/memory_fits.hpp"

namespace quen::workbench {
namespace {

using quen::common::Fits::Handle;
using quen::detector::kHeight;
using quen::detector::kPixels;
using quen::detector::kWidth;
using quen::detector::PixelState;

PixelState StateOf(double element, std::size_t pixel, const std::string& name) {
  for (const PixelState state : {PixelState::kGood, PixelState::kDead, PixelState::kHot, PixelState::kStuck}) {
    if (element == static_cast<double>(state)) return state;
  }
  throw std::runtime_error(fmt::format(
      "{}: expected 0 (good), 1 (dead), 2 (hot) or 3 (stuck) for each pixel, found {:g} at column {}, row {}", name,
      element, pixel % kWidth, pixel / kWidth));
}

void WriteWhat(const Handle& image, const std::string& what, const KeyWriter& write_keys) {
  WriteKey(image, "MAP", what, "what the elements are");
  if (write_keys) write_keys(image);
  WriteCreator(image, "detector");
}

}  // namespace

std::vector<double> ReadMap(const InputFile& file) {
  return Reading(file, [&] {
    const Handle image = OpenOnlyImage(file, fmt::format("a map of {} x {} pixels (columns x rows)", kWidth, kHeight),
                                       [](const Axes& axes) {
                                         return axes == Axes{kWidth, kHeight};
                                       });
    std::vector<double> map(kPixels);
    ReadElements(file, image, std::nullopt, map);
    return map;
  });
}

std::vector<PixelState> ReadPixelStates(const InputFile& file) {
  const std::vector<double> map = ReadMap(file);
  std::vector<PixelState> states(map.size());
  for (std::size_t pixel = 0; pixel < map.size(); ++pixel) states[pixel] = StateOf(map[pixel], pixel, file.Name());
  return states;
}

std::string MapFile(const std::vector<double>& map, const std::string& what, const KeyWriter& write_keys) {
  MemoryFits fits;
  quen::common::Fits::WriteImgPriv(fits.Image(), map.data(), map.size(), DOUBLE_IMG, TDOUBLE, {kWidth, kHeight});
  WriteWhat(fits.Image(), what, write_keys);
  return fits.Bytes();
}

std::string PixelStateFile(const std::vector<PixelState>& states, const KeyWriter& write_keys) {
  std::vector<std::uint8_t> bytes(states.size());
  std::ranges::transform(states, bytes.begin(), [](PixelState state) { return static_cast<std::uint8_t>(state); });
  MemoryFits fits;
  quen::common::Fits::WriteImgPriv(fits.Image(), bytes.data(), bytes.size(), BYTE_IMG, TBYTE, {kWidth, kHeight});
  WriteWhat(fits.Image(), "0 good, 1 dead, 2 hot, 3 stuck", write_keys);
  return fits.Bytes();
}

}  // namespace quen::workbench
