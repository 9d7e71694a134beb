#pragma once

#include <string>
#include <vector>

#include "workbench/fits/input_file.hpp"
#include "workbench/sensor/camera.hpp"
#include "workbench/sensor/frame_file.hpp"
#include "workbench/sensor/overlay.hpp"
#include "workbench/sensor/sensor_tables.hpp"

namespace quen::workbench {

/// Regions, flags, and, if the file has them, displacements and light of the sub-apertures.
struct MeasuredField {
  Overlay overlay;
  std::vector<double> flux;  ///< empty if the file has none
};

/// Reads the tables "rois", "rois_use" (or "rois_used") and "slopes", of which any may be missing: regions are then
/// those of the synthetic grid, and all sub-apertures used.
/// @throws std::runtime_error  a table is not 1089 rows long, or cannot be read
MeasuredField ReadField(const InputFile& file);

/// What a simulator has measured in one frame, a row for each sub-aperture.
std::vector<SlopeRow> MeasuredSlopes(const quen::shssim::ShsSimulator& simulator);

/// A FITS file of what a simulator has measured, as ShsSimulator::ComputeSlopes makes it: the tables "rois" (reference
/// points truncated to whole pixels), "rois_use" and "slopes".
std::string MeasurementFile(const quen::shssim::ShsSimulator& simulator);

/// The same of the camera's frame, with what a detector is in the header of its slopes.
std::string MeasurementFile(const Camera& camera, const Exposure& exposure);

/// The same of the frames of a file, with what their header says of a detector: a table "slopes" for each of them,
/// whose EXTVER is its number, counted from 1.
std::string MeasurementFile(const quen::shssim::ShsSimulator& simulator,
                            const std::vector<std::vector<SlopeRow>>& slopes, const FrameReader& frames);

}  // namespace quen::workbench
