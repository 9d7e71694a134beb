#pragma once

#include <optional>
#include <span>

#include "workbench/check/finding.hpp"
#include "workbench/check/src/lattice.hpp"
#include "workbench/sensor/calibration_lookup.hpp"

/// @file
/// The parts of an examination.

namespace quen::workbench {

/// The files, in the order of kCalibrationFiles: a finding for each.
Findings CheckFiles(std::span<const FoundFile> calibration);

/// What they hold.
/// @param lattice  fitted to the references; none if they are on no grid
Findings CheckRegions(const CalibrationContent& content, const std::optional<Lattice>& lattice);
Findings CheckMatrices(CalibrationContent content, const std::optional<Lattice>& lattice);

}  // namespace quen::workbench
