#include "workbench/sensor/sensor_tables.hpp"

#include <fmt/format.h>

#include <array>
#include <span>
#include <stdexcept>

namespace quen::workbench {
namespace {

using quen::common::Fits::Handle;

template <typename Row, std::size_t kCount>
using Columns = std::array<Column<Row>, kCount>;

constexpr const char* kPixels = "pix";
constexpr const char* kIntegers = "pixel centres are at integers, from 0";

constexpr Column<RegionRow> kXLow = {"x_low", kPixels, kIntegers, &RegionRow::x_low};
constexpr Column<RegionRow> kXUp = {"x_up", kPixels, kIntegers, &RegionRow::x_up};
constexpr Column<RegionRow> kXRef = {"x_ref", kPixels, kIntegers, &RegionRow::x_ref};
constexpr Column<RegionRow> kYLow = {"y_low", kPixels, kIntegers, &RegionRow::y_low};
constexpr Column<RegionRow> kYUp = {"y_up", kPixels, kIntegers, &RegionRow::y_up};
constexpr Column<RegionRow> kYRef = {"y_ref", kPixels, kIntegers, &RegionRow::y_ref};
constexpr Columns<RegionRow, 6> kRegions = {kXLow, kXUp, kXRef, kYLow, kYUp, kYRef};
constexpr Columns<RegionRow, 4> kRegionBounds = {kXLow, kXUp, kYLow, kYUp};
constexpr Columns<FlagRow, 1> kFlags = {{{"is_used", "", "", &FlagRow::is_used}}};
constexpr Columns<SlopeRow, 3> kSlopes = {
    {{"flux", "", "", &SlopeRow::flux}, {"x", "", "", &SlopeRow::x}, {"y", "", "", &SlopeRow::y}}};
constexpr Columns<SlopeRow, 2> kDisplacements = {{{"x", kPixels, "displacement along the columns", &SlopeRow::x},
                                                  {"y", kPixels, "displacement along the rows", &SlopeRow::y}}};

/// The same columns without units.
template <typename Row, std::size_t kCount>
Columns<Row, kCount> WithoutUnits(Columns<Row, kCount> columns) {
  for (Column<Row>& column : columns) column.unit = "";
  return columns;
}

template <typename Row, std::size_t kCount>
std::vector<std::string> NamesOf(const Columns<Row, kCount>& columns) {
  std::vector<std::string> names;
  for (const Column<Row>& column : columns) names.emplace_back(column.name);
  return names;
}

/// Rows of a table that has one for each sub-aperture.
template <typename Row>
std::vector<Row> ReadAll(const InputFile& file, const char* name, std::span<const Column<Row>> columns) {
  std::vector<Row> rows = ReadRows<Row>(file, name, columns);
  if (rows.size() == kNumRois) return rows;
  throw std::runtime_error(fmt::format("{}: expected {} rows in its table \"{}\", one per sub-aperture, found {}",
                                       file.Name(), kNumRois, name, rows.size()));
}

}  // namespace

const Handle& AppendRegions(MemoryFits& fits, std::vector<RegionRow> rows, bool has_units) {
  return AppendRows<RegionRow>(fits, kRegionTable, has_units ? kRegions : WithoutUnits(kRegions), std::move(rows));
}

const Handle& AppendFlags(MemoryFits& fits, const char* name, const std::vector<std::uint8_t>& flags) {
  std::vector<FlagRow> rows;
  rows.reserve(flags.size());
  for (const std::uint8_t flag : flags) rows.push_back({flag});
  return AppendRows<FlagRow>(fits, name, kFlags, std::move(rows));
}

const Handle& AppendSlopes(MemoryFits& fits, const std::vector<SlopeRow>& rows) {
  return AppendRows<SlopeRow>(fits, kSlopeTable, kSlopes, rows);
}

const Handle& AppendDisplacements(MemoryFits& fits, const Displacements& displacements) {
  std::vector<SlopeRow> rows;
  rows.reserve(kNumRois);
  for (std::size_t i = 0; i < kNumRois; ++i) rows.push_back({0.0, displacements.x[i], displacements.y[i]});
  return AppendRows<SlopeRow>(fits, kSlopeTable, kDisplacements, std::move(rows));
}

std::vector<std::string> RegionColumnNames() { return NamesOf(kRegions); }
std::vector<std::string> FlagColumnNames() { return NamesOf(kFlags); }

std::vector<RegionRow> ReadBounds(const InputFile& file) {
  return ReadRows<RegionRow>(file, kRegionTable, kRegionBounds);
}

std::vector<Roi> ReadRegions(const InputFile& file) {
  return Reading(file, [&] {
    std::vector<Roi> rois;
    rois.reserve(kNumRois);
    for (const RegionRow& row : ReadAll<RegionRow>(file, kRegionTable, kRegions)) {
      rois.emplace_back(row.x_low, row.x_up, row.y_low, row.y_up, kFrameWidth, kFrameHeight, row.x_ref, row.y_ref);
    }
    return rois;
  });
}

std::vector<std::uint8_t> ReadFlags(const InputFile& file, const char* name) {
  std::vector<std::uint8_t> flags;
  flags.reserve(kNumRois);
  for (const FlagRow& row : ReadAll<FlagRow>(file, name, kFlags)) flags.push_back(row.is_used);
  return flags;
}

Displacements ReadSlopeDisplacements(const InputFile& file) {
  Displacements displacements;
  std::size_t i = 0;
  for (const SlopeRow& row : ReadAll<SlopeRow>(file, kSlopeTable, kDisplacements)) {
    displacements.x[i] = row.x;
    displacements.y[i] = row.y;
    ++i;
  }
  return displacements;
}

std::vector<double> ReadFlux(const InputFile& file) {
  std::vector<double> flux;
  flux.reserve(kNumRois);
  for (const SlopeRow& row : ReadAll<SlopeRow>(file, kSlopeTable, std::span(kSlopes).first(1)))
    flux.push_back(row.flux);
  return flux;
}

}  // namespace quen::workbench
