#pragma once

#include <fitsio.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "defs/export.hpp"

/// @file
/// A thin, strict layer over CFITSIO: files as exclusively owned handles, images, binary tables. Every function checks
/// what the caller says against what the file says before CFITSIO moves any data, and reports a mismatch by throwing:
/// std::invalid_argument where caller and file disagree, std::runtime_error where the file or CFITSIO fails. Texts that
/// come from a CFITSIO failure end with its description and its queued messages, run together.
///
/// Functions named ...Priv take untyped buffers: a pointer, a number of elements (never bytes) and the CFITSIO datatype
/// code of the elements. In use are 11 (TBYTE) for std::uint8_t, 82 (TDOUBLE) for double and 21 (TSHORT) for
/// std::uint16_t: all 16-bit data of the system travels under the signed code.
///
/// A handle is used by one thread at a time. Different handles may be used by different threads with a reentrant
/// CFITSIO. Two things it shares among them: its message stack, so that texts of failures at the same moment can mix,
/// and the clock behind the time in the comments of checksum keywords. The layer takes no locks.

namespace quen::common::Fits {

/// An open FITS file, positioned on one HDU.
struct HandleType {
  fitsfile* file;         ///< CFITSIO's file; null until opened
  int hdu_type;           ///< type of the current HDU: 0 image, 1 ASCII table, 2 binary table, -1 not known
  bool read_only;         ///< true for handles made by FitsFile
  std::string extension;  ///< extension name asked for; empty when none was
};

/// Owner of an open file. Its release brings the current HDU's checksums up to date and closes the file; it never
/// throws, so that a disk that is full only then goes unnoticed: the file's checksums tell. A handle is made by
/// FitsFile or FitsFileWrite.
using Handle = std::unique_ptr<HandleType, void (*)(HandleType*)>;

/// Axis lengths NAXIS1, NAXIS2, … (fastest first), and BITPIX.
using ImgParams = std::pair<std::vector<std::size_t>, int>;

/// Shape {number of listed columns, number of rows}, and per listed column its name, 1-based number and CFITSIO
/// datatype code.
using TableParams = std::pair<std::vector<unsigned long>, std::vector<std::tuple<std::string, int, int>>>;

/// Binary-table column format (TFORMn letter) of an element type.
template <typename T>
struct CppToFits;

// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables): the type of `format` is part of the interface.
/// Of std::uint8_t.
template <>
struct CppToFits<unsigned char> {
  QUEN_EXPORT static const char* format;  ///< "B"
};
/// Of std::uint16_t.
template <>
struct CppToFits<unsigned short> {
  QUEN_EXPORT static const char* format;  ///< "U"
};
/// Of double.
template <>
struct CppToFits<double> {
  QUEN_EXPORT static const char* format;  ///< "D"
};
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)

// --- Files ---------------------------------------------------------------------------------------------------------

/// Opens an existing file for reading.
///
/// @param path       file name, CFITSIO's extended syntax included
/// @param extension  name of the HDU to move to; none: the HDU that `path` selects, normally the primary one
/// @return           read-only handle that knows its HDU type
/// @throws std::runtime_error  the file or the extension cannot be opened; or a header holds what CFITSIO would take
///                             without a check, sizes that no file can have for instance (docs/damaged_files.md)
QUEN_EXPORT Handle FitsFile(const std::string& path, const std::optional<std::string>& extension);

/// Opens a file for writing, or creates it with its missing parent directories.
///
/// With `overwrite` the file is always created anew and replaces an existing one. Without, an existing file is opened
/// and moved to the binary table `extension` if it has one: the handle's HDU type is then 2, and otherwise -1, ready
/// for WriteTable to append that table. A new file holds an empty primary image with checksums.
///
/// @throws std::runtime_error                 the file cannot be created (without `overwrite` also: it exists but
///                                            cannot be opened for writing, as FitsFile; or it lacks more than 100 MB
///                                            of the data that it declares)
/// @throws std::filesystem::filesystem_error  a parent directory cannot be made
QUEN_EXPORT Handle FitsFileWrite(const std::string& path, bool overwrite, const std::optional<std::string>& extension);

// --- Images --------------------------------------------------------------------------------------------------------

/// Shape and pixel type of the image that the handle is positioned on.
/// @throws std::runtime_error  HDU type is not 0 (a table, or not known), CFITSIO failure
QUEN_EXPORT ImgParams ReadImgParams(const Handle& handle);

/// Reads a whole image.
///
/// @param handle    positioned on the image
/// @param buffer    room for `count` elements of the type that `datatype` names; filled fastest axis first
/// @param count     at least the number of pixels; elements beyond it are left alone
/// @param bitpix    BITPIX that the file must have
/// @param datatype  CFITSIO code of the buffer's elements; CFITSIO converts
/// @param dims      axis lengths that the file must have, in FITS order; none: any
/// @throws std::invalid_argument  other BITPIX; buffer too small (checked in this order; buffer untouched)
/// @throws std::runtime_error     not an image; other number or lengths of axes (buffer untouched); CFITSIO failure
QUEN_EXPORT void ReadImgPriv(const Handle& handle, void* buffer, std::size_t count, int bitpix, int datatype,
                             const std::optional<std::vector<std::size_t>>& dims);

/// Reads one plane, NAXIS1 × NAXIS2 pixels, of a three-dimensional image.
///
/// @param handle    positioned on the image
/// @param buffer    as for ReadImgPriv
/// @param count     at least NAXIS1 × NAXIS2
/// @param bitpix    as for ReadImgPriv
/// @param datatype  as for ReadImgPriv
/// @param slice     0-based index along the third axis
/// @throws std::invalid_argument  not three axes; other BITPIX
/// @throws std::out_of_range      no such plane
/// @throws std::invalid_argument  buffer too small (all checked in this order; buffer untouched)
/// @throws std::runtime_error     not an image (checked first); CFITSIO failure
QUEN_EXPORT void ReadImgSlicePriv(const Handle& handle, void* buffer, std::size_t count, int bitpix, int datatype,
                                  std::size_t slice);

/// Writes an image into the primary HDU of a file opened for writing.
///
/// @param handle    from FitsFileWrite, opened without an extension name
/// @param buffer    `count` elements of the type that `datatype` names, fastest axis first
/// @param count     number of pixels
/// @param bitpix    pixel type of the file: 16 or -64 here
/// @param datatype  CFITSIO code of the buffer's elements: 21 for the 16-bit frame, 82 for double
/// @param dims      axis lengths NAXIS1, NAXIS2, …; their product is `count`
/// @throws std::invalid_argument  the product of `dims` is not `count`
/// @throws std::runtime_error     read-only handle, handle of an extension, CFITSIO failure
QUEN_EXPORT void WriteImgPriv(const Handle& handle, const void* buffer, std::size_t count, int bitpix, int datatype,
                              const std::vector<std::size_t>& dims);

/// Reads the value of one header keyword of the image that the handle is positioned on.
///
/// @param handle    positioned on the image
/// @param value     room for one value of the type that `datatype` names (FLEN_VALUE characters for TSTRING)
/// @param datatype  CFITSIO code of the value
/// @param key       the keyword
/// @throws std::runtime_error  HDU type is not 0; no such keyword, or its value does not convert
QUEN_EXPORT void ReadImgHeaderPriv(const Handle& handle, void* value, int datatype, const std::string& key);

// --- Tables --------------------------------------------------------------------------------------------------------

/// Lists the columns of the table that the handle is positioned on.
///
/// @param handle  positioned on the table
/// @param column  none: all columns; a name: the first column of exactly this name, or no column if there is none
/// @throws std::runtime_error  HDU type is neither 1 nor 2, CFITSIO failure
QUEN_EXPORT TableParams ReadTableParams(const Handle& handle, const std::optional<std::string>& column);

/// Reads a column, one element per row.
///
/// @param handle    positioned on the table
/// @param buffer    room for `capacity` elements of the type that `datatype` names
/// @param capacity  at least the number of rows; elements beyond it are left alone
/// @param datatype  CFITSIO code of the buffer's elements; CFITSIO converts
/// @param column    its name
/// @return          `capacity`
/// @throws std::invalid_argument  no such column; buffer too small (buffer untouched)
/// @throws std::runtime_error     not a table; CFITSIO failure; undefined entries (buffer then partly written)
QUEN_EXPORT std::size_t ReadColumnPriv(const Handle& handle, void* buffer, std::size_t capacity, int datatype,
                                       const std::string& column);

/// Reads a column, one element per row, into a new vector. T is std::uint8_t, std::uint16_t or double.
/// @throws std::runtime_error     no such column; otherwise as ReadColumnPriv
template <typename T>
std::vector<T> ReadColumnOrThrow(const Handle& handle, const std::string& column);

extern template QUEN_EXPORT std::vector<unsigned char> ReadColumnOrThrow(const Handle&, const std::string&);
extern template QUEN_EXPORT std::vector<unsigned short> ReadColumnOrThrow(const Handle&, const std::string&);
extern template QUEN_EXPORT std::vector<double> ReadColumnOrThrow(const Handle&, const std::string&);

/// Appends an empty binary table to the file and makes it the current HDU.
///
/// @param handle   from FitsFileWrite, opened with the extension name that the table is to bear
/// @param columns  name and TFORMn format of each column; only the first 64 are used, without units
/// @throws std::runtime_error  read-only handle, handle without an extension name, CFITSIO failure
QUEN_EXPORT void WriteTable(const Handle& handle, const std::vector<std::pair<std::string, std::string>>& columns);

/// Writes into a column; the table grows as needed.
///
/// @param handle     from FitsFileWrite, positioned on the table
/// @param data       `count` elements of the type that `datatype` names, one per row in a scalar column
/// @param count      number of elements
/// @param datatype   CFITSIO code of the elements
/// @param column     1-based column number
/// @param first_row  1-based row of the first element
/// @return           `count`
/// @throws std::runtime_error  read-only handle, CFITSIO failure
QUEN_EXPORT std::size_t WriteColumnPriv(const Handle& handle, const void* data, std::size_t count, int datatype,
                                        int column, int first_row);

/// The same, by column name; `datatype` must be the column's own code.
/// @throws std::runtime_error     read-only handle, not a table, CFITSIO failure
/// @throws std::invalid_argument  no such column; `datatype` is not the column's (nothing written)
QUEN_EXPORT std::size_t WriteColumnPriv(const Handle& handle, const void* data, std::size_t count, int datatype,
                                        const std::string& column, int first_row);

}  // namespace quen::common::Fits
