#pragma once

#include "common/fits/fits.hpp"
#include "workbench/fits/input_file.hpp"
#include "workbench/sensor/matrices.hpp"

/// @file
/// A matrix in a FITS file: an image of doubles (BITPIX -64) whose NAXIS1 counts columns, NAXIS2 rows.

namespace quen::workbench {

/// Writes a matrix into a new file's primary image.
/// @throws std::runtime_error  CFITSIO failure
void WriteMatrix(const quen::common::Fits::Handle& image, const Matrix& matrix);

/// Reads the matrix in a file's primary image.
/// @throws std::runtime_error  it cannot be read, or is no image of two axes with doubles
Matrix ReadMatrix(const InputFile& file);

}  // namespace quen::workbench
