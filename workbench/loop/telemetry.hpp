#pragma once

#include <string>
#include <vector>

#include "common/fits/fits.hpp"
#include "workbench/fits/input_file.hpp"
#include "workbench/loop/control_loop.hpp"

namespace quen::workbench {

inline constexpr const char* kTelemetryTable = "telemetry";

/// A FITS file of the records of a loop: a binary table "telemetry" with the options in its header. A row per frame has
/// the frame's number, the RMS of disturbance and residual, and the 52 modes of disturbance, correction and residual,
/// all in radians.
/// @param disturbance  where it is from, in words
std::string TelemetryFile(const LoopOptions& options, const std::string& disturbance,
                          const std::vector<FrameRecord>& records);

/// The loop's options, in the header of the table that the file stands on.
void WriteLoopKeys(const quen::common::Fits::Handle& file, const LoopOptions& options, const std::string& disturbance);

/// Reads what TelemetryFile has made.
/// @throws std::runtime_error  the file cannot be read, lacks a column, or has no row
std::vector<FrameRecord> ReadTelemetry(const InputFile& file);

/// Reads its disturbance alone.
/// @throws std::runtime_error  the file cannot be read, or lacks that column
Series ReadDisturbance(const InputFile& file);

}  // namespace quen::workbench
