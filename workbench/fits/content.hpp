#pragma once

#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/fits/fits.hpp"
#include "workbench/fits/input_file.hpp"

/// @file
/// Questions about what a FITS file holds; that it does not hold something is an answer, not a failure. No function
/// leaves messages on CFITSIO's stack, or reports messages that others have left there.

namespace quen::workbench {

/// @throws std::runtime_error  the file cannot be read, or does not begin as a FITS file does
void RequireFits(const InputFile& file);

/// Whether a file begins as a FITS file does, not compressed.
/// @throws std::runtime_error  it cannot be read
bool IsFits(const InputFile& file);

/// Opens a file at its primary image, or at an extension, through the library.
/// @throws std::runtime_error  the library refuses it, or its header declares more data than the file holds. A caller
///                             that makes room for what is declared thus takes no more memory than the file's size
///                             justifies
quen::common::Fits::Handle OpenFits(const InputFile& file, const std::optional<std::string>& extension);

/// @throws std::runtime_error  a header anywhere in it cannot be understood, or declares more data than there are; or
///                             its last part is none
void RequireWhole(const InputFile& file);

/// Opens a file at an image.
/// @param extension  name or number of its extension; empty: the primary image or, where that has no pixels, the first
///                   extension
/// @throws std::runtime_error  as OpenFits; there is no such extension, or it is a table. Tiles of a compressed image
///                             may hold more than the file has bytes: the caller looks at its axes first
quen::common::Fits::Handle OpenImage(const InputFile& file, const std::string& extension);

using Axes = std::vector<std::size_t>;  ///< lengths, fastest first

/// Opens a file at the image that a caller wants: its primary image or, where that has no pixels, the only one among
/// its extensions.
/// @param expected   what is wanted, in words: "a map of 840 x 816 pixels"
/// @param is_wanted  whether axes are those of such an image
/// @throws std::runtime_error  as OpenFits; there is no such image, or more than one: what was expected, what was found
quen::common::Fits::Handle OpenOnlyImage(const InputFile& file, const std::string& expected,
                                         const std::function<bool(const Axes& axes)>& is_wanted);

/// Reads the elements of an image, or one plane of a cube, as doubles, BSCALE and BZERO applied. Those without a value,
/// as BLANK says of whole numbers, are NaN.
/// @param plane     counted from 0; none: the whole image
/// @param elements  room for as many as there are
/// @throws std::runtime_error  they cannot be read
void ReadElements(const InputFile& file, const quen::common::Fits::Handle& image, std::optional<std::size_t> plane,
                  std::vector<double>& elements);

/// Whether this is the library's failure to open a file. An InputFile is open already: it is the system that has
/// failed, for want of descriptors or of memory, and nothing is said of what the file holds.
bool IsFailureToOpen(const std::exception& error);

/// Whether the file has a binary table of this name.
/// @throws std::runtime_error  it cannot be told, or the table cannot be read
bool HasTable(const InputFile& file, const char* name);

/// @throws std::runtime_error  it is not a FITS file, or has no binary table of this name
void RequireTable(const InputFile& file, const char* name);

/// The number at a keyword of the header that the handle stands on; `otherwise` if the header lacks the keyword.
/// @throws std::runtime_error  it is not a number, or cannot be read
double NumberKey(const InputFile& file, const quen::common::Fits::Handle& handle, const char* key, double otherwise);

/// The text at a keyword of that header; empty if the header lacks the keyword.
/// @throws std::runtime_error  it cannot be read
std::string TextKey(const InputFile& file, const quen::common::Fits::Handle& handle, const char* key);

}  // namespace quen::workbench
