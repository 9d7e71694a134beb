#include "workbench/sensor/slopes_file.hpp"

#include <fmt/format.h>

#include <cstdint>
#include <stdexcept>

#include "common/fits/fits.hpp"
#include "shssim/truncation.hpp"
#include "workbench/fits/content.hpp"
#include "workbench/fits/memory_fits.hpp"
#include "workbench/sensor/geometry.hpp"

namespace quen::workbench {
namespace {

using quen::basesim::kFrameHeight;
using quen::basesim::kFrameWidth;
using quen::basesim::kNumRois;
using quen::common::Fits::CppToFits;
using quen::common::Fits::Handle;
using quen::common::Fits::WriteColumnPriv;
using quen::image_processing::Roi;
using quen::shssim::TruncateToPixel;

template <typename T>
std::vector<T> ReadColumn(const std::string& name, const Handle& file, const char* column) {
  std::vector<T> values = quen::common::Fits::ReadColumnOrThrow<T>(file, column);
  if (values.size() == kNumRois) return values;
  throw std::runtime_error(fmt::format("{}: expected {} rows in its table \"{}\", one per sub-aperture, found {}", name,
                                       kNumRois, file->extension, values.size()));
}

std::vector<Roi> ReadRois(const InputFile& input) {
  const std::string& name = input.Name();
  const Handle file = OpenFits(input, "rois");
  const auto x_low = ReadColumn<std::uint16_t>(name, file, "x_low");
  const auto x_up = ReadColumn<std::uint16_t>(name, file, "x_up");
  const auto y_low = ReadColumn<std::uint16_t>(name, file, "y_low");
  const auto y_up = ReadColumn<std::uint16_t>(name, file, "y_up");
  const auto x_ref = ReadColumn<double>(name, file, "x_ref");
  const auto y_ref = ReadColumn<double>(name, file, "y_ref");
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

// --- As the library writes them

void WriteRois(MemoryFits& fits, const std::vector<Roi>& rois) {
  const char* const u16 = CppToFits<std::uint16_t>::format;
  const char* const f64 = CppToFits<double>::format;
  const Handle& table = fits.AddTable(
      "rois", {{"x_low", u16}, {"x_up", u16}, {"x_ref", f64}, {"y_low", u16}, {"y_up", u16}, {"y_ref", f64}});
  int column = 0;
  const auto write = [&](const auto& value) {
    std::vector<std::uint16_t> values;
    values.reserve(rois.size());
    for (const Roi& roi : rois) values.push_back(value(roi));
    WriteColumnPriv(table, values.data(), values.size(), TSHORT, ++column, 1);
  };
  write([](const Roi& roi) { return roi.x_low; });
  write([](const Roi& roi) { return roi.x_up; });
  write([](const Roi& roi) { return TruncateToPixel(roi.x_ref); });
  write([](const Roi& roi) { return roi.y_low; });
  write([](const Roi& roi) { return roi.y_up; });
  write([](const Roi& roi) { return TruncateToPixel(roi.y_ref); });
}

}  // namespace

MeasuredField ReadField(const InputFile& file) {
  return Reading(file, [&] {
    MeasuredField field;
    field.overlay.rois = HasTable(file, "rois") ? ReadRois(file) : SyntheticRois();
    for (const char* const flags : {"rois_use", "rois_used"}) {
      if (!HasTable(file, flags)) continue;
      field.overlay.used = ReadColumn<std::uint8_t>(file.Name(), OpenFits(file, flags), "is_used");
    }
    if (!HasTable(file, "slopes")) return field;
    const Handle table = OpenFits(file, "slopes");
    field.overlay.displacements = {ReadColumn<double>(file.Name(), table, "x"),
                                   ReadColumn<double>(file.Name(), table, "y")};
    const auto [shape, columns] = quen::common::Fits::ReadTableParams(table, "flux");
    if (!columns.empty()) field.flux = ReadColumn<double>(file.Name(), table, "flux");
    return field;
  });
}

std::string SlopesFile(const quen::shssim::ShsSimulator& simulator) {
  MemoryFits fits;
  WriteRois(fits, simulator.Rois());
  const std::vector<std::uint8_t>& used = simulator.RoisUsed();
  WriteColumnPriv(fits.AddTable("rois_use", {{"is_used", CppToFits<std::uint8_t>::format}}), used.data(), used.size(),
                  TBYTE, 1, 1);
  const char* const f64 = CppToFits<double>::format;
  const Handle& slopes = fits.AddTable("slopes", {{"flux", f64}, {"x", f64}, {"y", f64}});
  int column = 0;
  for (const std::vector<double>& values : {simulator.Flux(), simulator.XSlopes(), simulator.YSlopes()}) {
    WriteColumnPriv(slopes, values.data(), values.size(), TDOUBLE, ++column, 1);
  }
  return fits.Bytes();
}

}  // namespace quen::workbench
