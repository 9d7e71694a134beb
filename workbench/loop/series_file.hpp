#pragma once

#include "workbench/fits/input_file.hpp"
#include "workbench/loop/disturbance.hpp"

namespace quen::workbench {

/// A column of the table "telemetry" of 52 modes per row.
/// @throws std::runtime_error  no such table or column, or it cannot be read
Series ReadModes(const InputFile& file, const char* column);

/// Modes over time from a file: the column "disturbance" of a table "telemetry", or a primary image of doubles with the
/// 52 modes along its first axis and the frames along its second, in radians.
/// @throws std::runtime_error  the file cannot be read, or holds something else, or a value that is not finite
Series ReadSeries(const InputFile& file);

}  // namespace quen::workbench
