#pragma once

#include <string>

#include "workbench/fits/input_file.hpp"
#include "workbench/sensor/displacements.hpp"

/// @file
/// Displacements of all 1089 spots in a file: a FITS file with a table "slopes" of columns x and y, as measurements
/// have it, or text of a line "dx,dy" per sub-aperture. Text may have a first line that names the columns, empty lines,
/// and lines that begin with #.

namespace quen::workbench {

/// @throws std::runtime_error  the file cannot be read, or does not hold 1089 pairs of finite numbers
Displacements ReadDisplacements(const InputFile& file);

/// A FITS file, as it is read.
/// @param command  that writes it
std::string DisplacementFile(const Displacements& displacements, const std::string& command);

}  // namespace quen::workbench
