#pragma once

#include "workbench/check/finding.hpp"
#include "workbench/pictures/src/panel.hpp"

/// @file
/// What there is to see of a calibration, each as a small picture.

namespace quen::workbench {

/// Slopes of a mode: a column of M2S, or a row of CM.
Panel M2sMode(const CalibrationContent& content, std::size_t mode);
Panel CmMode(const CalibrationContent& content, std::size_t mode);

/// What the control matrix makes of each mode.
Panel Product(const CalibrationContent& content);

/// How far all references are from the middle of their regions.
Panel Offsets(const CalibrationContent& content);

/// One region pixel by pixel, with its reference and what is around it.
Panel RegionAt(const CalibrationContent& content, std::size_t i);

/// All regions: darker where they overlap.
Panel Coverage(const CalibrationContent& content);

/// Usage flags, and how far the modes move the spots of what is flagged.
Panel Flags(const CalibrationContent& content);

}  // namespace quen::workbench
