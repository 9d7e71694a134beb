#include "tools/quen-shs/src/files/slopes_file.hpp"

#include <fmt/format.h>

#include <cstdint>
#include <stdexcept>

#include "common/fits/fits.hpp"
#include "tools/quen-shs/src/files/fits_content.hpp"
#include "tools/quen-shs/src/sensor/geometry.hpp"

namespace quen_shs {
namespace {

using quen::basesim::kFrameHeight;
using quen::basesim::kFrameWidth;
using quen::basesim::kNumRois;
using quen::common::Fits::FitsFile;
using quen::common::Fits::Handle;
using quen::image_processing::Roi;

template <typename T>
std::vector<T> ReadColumn(const std::string& path, const Handle& file, const char* column) {
  std::vector<T> values = quen::common::Fits::ReadColumnOrThrow<T>(file, column);
  if (values.size() == kNumRois) return values;
  throw std::runtime_error(fmt::format("{}: expected {} rows in its table \"{}\", one per sub-aperture, found {}", path,
                                       kNumRois, file->extension, values.size()));
}

std::vector<Roi> ReadRois(const std::string& path) {
  const Handle file = FitsFile(path, "rois");
  const auto x_low = ReadColumn<std::uint16_t>(path, file, "x_low");
  const auto x_up = ReadColumn<std::uint16_t>(path, file, "x_up");
  const auto y_low = ReadColumn<std::uint16_t>(path, file, "y_low");
  const auto y_up = ReadColumn<std::uint16_t>(path, file, "y_up");
  const auto x_ref = ReadColumn<double>(path, file, "x_ref");
  const auto y_ref = ReadColumn<double>(path, file, "y_ref");
  std::vector<Roi> rois;
  for (std::size_t i = 0; i < kNumRois; ++i) {
    rois.emplace_back(x_low[i], x_up[i], y_low[i], y_up[i], kFrameWidth, kFrameHeight, x_ref[i], y_ref[i]);
  }
  return rois;
}

std::vector<Roi> SyntheticRois() {
  const Geometry geometry;
  std::vector<Roi> rois;
  for (std::size_t i = 0; i < kNumRois; ++i) {
    const Cell cell = CellAt(geometry, i);
    const auto x = static_cast<std::uint16_t>(cell.first_column);
    const auto y = static_cast<std::uint16_t>(cell.first_row);
    const auto size = static_cast<std::uint16_t>(geometry.size);
    rois.emplace_back(x, static_cast<std::uint16_t>(x + size), y, static_cast<std::uint16_t>(y + size), kFrameWidth,
                      kFrameHeight, cell.x_ref, cell.y_ref);
  }
  return rois;
}

}  // namespace

MeasuredField ReadField(const std::string& path) {
  MeasuredField field;
  field.overlay.rois = HasTable(path, "rois") ? ReadRois(path) : SyntheticRois();
  for (const char* const flags : {"rois_use", "rois_used"}) {
    if (HasTable(path, flags)) field.overlay.used = ReadColumn<std::uint8_t>(path, FitsFile(path, flags), "is_used");
  }
  if (!HasTable(path, "slopes")) return field;
  const Handle file = FitsFile(path, "slopes");
  field.overlay.displacements = {ReadColumn<double>(path, file, "x"), ReadColumn<double>(path, file, "y")};
  const auto [shape, columns] = quen::common::Fits::ReadTableParams(file, "flux");
  if (!columns.empty()) field.flux = ReadColumn<double>(path, file, "flux");
  return field;
}

}  // namespace quen_shs
