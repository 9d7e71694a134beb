#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "workbench/fits/table.hpp"
#include "workbench/sensor/dimensions.hpp"
#include "workbench/sensor/displacements.hpp"

/// @file
/// The tables of a sensor's files, a row for each of the 1089 sub-apertures: regions, usage flags, slopes.

namespace quen::workbench {

/// Pixels [low, up) of a region, and its reference point.
struct RegionRow {
  std::uint16_t x_low = 0;
  std::uint16_t x_up = 0;
  double x_ref = 0.0;
  std::uint16_t y_low = 0;
  std::uint16_t y_up = 0;
  double y_ref = 0.0;
};

struct FlagRow {
  std::uint8_t is_used = 0;
};

struct SlopeRow {
  double flux = 0.0;
  double x = 0.0;  ///< pixels
  double y = 0.0;
};

inline constexpr const char* kRegionTable = "rois";
inline constexpr const char* kFlagTable = "rois_used";
inline constexpr const char* kMeasuredFlagTable = "rois_use";  ///< as the library writes it
inline constexpr const char* kSlopeTable = "slopes";

/// Appends the regions of a calibration, whose table has units, or of a measurement, whose table has none.
const quen::common::Fits::Handle& AppendRegions(MemoryFits& fits, std::vector<RegionRow> rows, bool has_units);
const quen::common::Fits::Handle& AppendFlags(MemoryFits& fits, const char* name,
                                              const std::vector<std::uint8_t>& flags);
const quen::common::Fits::Handle& AppendSlopes(MemoryFits& fits, const std::vector<SlopeRow>& rows);
/// A table of slopes without light, with units.
const quen::common::Fits::Handle& AppendDisplacements(MemoryFits& fits, const Displacements& displacements);

/// Names of the columns of a calibration's two tables.
std::vector<std::string> RegionColumnNames();
std::vector<std::string> FlagColumnNames();

/// Regions without their reference points, of a table of any number of rows.
/// @throws std::runtime_error  the table or one of these columns is missing, or cannot be read
std::vector<RegionRow> ReadBounds(const InputFile& file);

/// @throws std::runtime_error  a table is missing, cannot be read, or is not 1089 rows long
std::vector<Roi> ReadRegions(const InputFile& file);
std::vector<std::uint8_t> ReadFlags(const InputFile& file, const char* name);
Displacements ReadSlopeDisplacements(const InputFile& file);
std::vector<double> ReadFlux(const InputFile& file);

}  // namespace quen::workbench
