#pragma once

#include <string>

#include "workbench/fits/input_file.hpp"
#include "workbench/sensor/camera.hpp"
#include "workbench/sensor/displacements.hpp"

/// @file
/// Displacements of all 1089 spots in a file: a FITS file with a table "slopes" of columns x and y, as measurements
/// have it, or text with a line "dx,dy" per sub-aperture. Text may have a first line that names the columns, empty
/// lines, and lines that begin with #.

namespace quen::workbench {

/// @throws std::runtime_error  the file cannot be read, or does not hold 1089 pairs of finite numbers
Displacements ReadDisplacements(const InputFile& file);

/// A FITS file that ReadDisplacements reads.
/// @param command   the one that writes it, for the header
/// @param exposure  of the frame that has them; a detector goes into the header
std::string DisplacementFile(const Displacements& displacements, const std::string& command,
                             const Exposure& exposure = {});

}  // namespace quen::workbench
