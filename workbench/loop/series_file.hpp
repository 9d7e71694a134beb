#pragma once

#include "workbench/fits/input_file.hpp"
#include "workbench/loop/disturbance.hpp"

namespace quen::workbench {

/// Modes over time from a file: the column "disturbance" of a table "telemetry", or a primary image of doubles with the
/// 52 modes along its first axis and the frames along its second, in radians.
/// @throws std::runtime_error  the file cannot be read, or holds something else, or a value that is not finite
Series ReadSeries(const InputFile& file);

}  // namespace quen::workbench
