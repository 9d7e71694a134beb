#pragma once

#include <exception>
#include <optional>
#include <string>

#include "common/fits/fits.hpp"
#include "workbench/fits/input_file.hpp"

/// @file
/// What a FITS file has, asked without a failure where it has it not. No function leaves messages on CFITSIO's stack,
/// or gives those of others.

namespace quen::workbench {

/// @throws std::runtime_error  the file cannot be read, or does not begin as a FITS file does
void RequireFits(const InputFile& file);

/// Whether a file begins as a FITS file does, not compressed.
/// @throws std::runtime_error  it cannot be read
bool IsFits(const InputFile& file);

/// Opens a file at its primary image, or at an extension, through the library.
/// @throws std::runtime_error  the library refuses it, or its header declares more than the file holds: whoever makes
///                             room for what is declared then takes no more memory than a file of that size justifies
quen::common::Fits::Handle OpenFits(const InputFile& file, const std::optional<std::string>& extension);

/// Whether this is the library's failure to open a file. An InputFile is open already: it is the system that has failed,
/// for want of descriptors or of memory, and nothing is said of what the file holds.
bool IsFailureToOpen(const std::exception& error);

/// Whether the file has a binary table of this name.
/// @throws std::runtime_error  that cannot be told, or it has one that cannot be read
bool HasTable(const InputFile& file, const char* name);

/// @throws std::runtime_error  it is no FITS file, or has no binary table of this name
void RequireTable(const InputFile& file, const char* name);

/// A number of the header that the handle stands on; `otherwise` without the keyword.
/// @throws std::runtime_error  it is no number, or cannot be read
double NumberKey(const InputFile& file, const quen::common::Fits::Handle& handle, const char* key, double otherwise);

/// Text of it; empty without the keyword.
/// @throws std::runtime_error  it cannot be read
std::string TextKey(const InputFile& file, const quen::common::Fits::Handle& handle, const char* key);

}  // namespace quen::workbench
