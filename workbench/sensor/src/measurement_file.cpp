#include "workbench/sensor/measurement_file.hpp"

#include <cstdint>
#include <functional>
#include <utility>

#include "common/fits/fits.hpp"
#include "shssim/truncation.hpp"
#include "workbench/fits/content.hpp"
#include "workbench/fits/header.hpp"
#include "workbench/sensor/dimensions.hpp"
#include "workbench/sensor/geometry.hpp"
#include "workbench/sensor/sensor_tables.hpp"

namespace quen::workbench {
namespace {

using quen::common::Fits::Handle;
using quen::shssim::TruncateToPixel;

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

/// The row that the library writes for a region: the reference truncated to whole pixels, and signed.
RegionRow RowOf(const Roi& roi) {
  const auto truncated = [](double reference) { return static_cast<std::int16_t>(TruncateToPixel(reference)); };
  return {roi.x_low, roi.x_up, static_cast<double>(truncated(roi.x_ref)),
          roi.y_low, roi.y_up, static_cast<double>(truncated(roi.y_ref))};
}

/// @param write_keys  writes what is known of a frame into the header of its slopes
std::string FileOfSlopes(const quen::shssim::ShsSimulator& simulator, const std::vector<std::vector<SlopeRow>>& frames,
                         const std::function<void(const Handle& table)>& write_keys) {
  std::vector<RegionRow> regions;
  regions.reserve(kNumRois);
  for (const Roi& roi : simulator.Rois()) regions.push_back(RowOf(roi));
  MemoryFits fits;
  AppendRegions(fits, std::move(regions), false);
  AppendFlags(fits, kMeasuredFlagTable, simulator.RoisUsed());
  for (std::size_t number = 1; number <= frames.size(); ++number) {
    const Handle& table = AppendSlopes(fits, frames[number - 1]);
    if (frames.size() > 1) WriteKey(table, "EXTVER", static_cast<long>(number), "number of the frame, from 1");
    write_keys(table);
  }
  return fits.Bytes();
}

}  // namespace

MeasuredField ReadField(const InputFile& file) {
  MeasuredField field;
  field.overlay.rois = HasTable(file, kRegionTable) ? ReadRegions(file) : SyntheticRois();
  for (const char* const flags : {kMeasuredFlagTable, kFlagTable}) {
    if (HasTable(file, flags)) field.overlay.used = ReadFlags(file, flags);
  }
  if (!HasTable(file, kSlopeTable)) return field;
  field.overlay.displacements = ReadSlopeDisplacements(file);
  const auto [shape, columns] =
      Reading(file, [&] { return quen::common::Fits::ReadTableParams(OpenFits(file, kSlopeTable), "flux"); });
  if (!columns.empty()) field.flux = ReadFlux(file);
  return field;
}

std::vector<SlopeRow> MeasuredSlopes(const quen::shssim::ShsSimulator& simulator) {
  std::vector<SlopeRow> slopes;
  slopes.reserve(kNumRois);
  for (std::size_t i = 0; i < kNumRois; ++i) {
    slopes.push_back({simulator.Flux()[i], simulator.XSlopes()[i], simulator.YSlopes()[i]});
  }
  return slopes;
}

std::string MeasurementFile(const quen::shssim::ShsSimulator& simulator) {
  return FileOfSlopes(simulator, {MeasuredSlopes(simulator)}, [](const Handle&) {});
}

std::string MeasurementFile(const Camera& camera, const Exposure& exposure) {
  return FileOfSlopes(camera, {MeasuredSlopes(camera)},
                      [&](const Handle& table) { WriteExposureOfDetector(table, exposure); });
}

std::string MeasurementFile(const quen::shssim::ShsSimulator& simulator,
                            const std::vector<std::vector<SlopeRow>>& slopes, const FrameReader& frames) {
  return FileOfSlopes(simulator, slopes, [&](const Handle& table) { frames.CopyDetectorKeysTo(table); });
}

}  // namespace quen::workbench
