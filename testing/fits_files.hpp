#pragma once

#include <fitsio.h>

#include <cstddef>
#include <string>
#include <vector>

/// @file
/// FITS files made with bare CFITSIO, for tests to read with the library. Every failure throws std::runtime_error.

namespace quen::testing {

/// Writes a primary image of `values` (as many as the product of `dims`, or none for an empty list) stored as `bitpix`.
void WriteImage(const std::string& path, int bitpix, const std::vector<long>& dims, const std::vector<double>& values);

/// `count` numbers: first, first + 1, first + 2, …
std::vector<double> Ramp(std::size_t count, double first = 1.0);

/// A column of a table: name, TFORM and its values (numbers only), one per row.
struct ColumnData {
  std::string name;
  std::string format;
  std::vector<double> values;
};

/// Appends a table extension of type BINARY_TBL or ASCII_TBL; makes the file if it does not exist. The number of rows
/// is `rows`; columns may hold fewer values.
void AppendTable(const std::string& path, const std::string& name, long rows, const std::vector<ColumnData>& columns,
                 int type = BINARY_TBL);

/// Empties CFITSIO's message queue, which the whole process shares.
inline void ClearMessages() { fits_clear_errmsg(); }

/// All bytes of a file.
std::vector<char> Bytes(const std::string& path);

/// The same without the checksum cards of a FITS file, which carry the time of writing.
std::vector<char> BytesWithoutChecksums(const std::string& path);

/// A header: cards of 80 characters, an END, and blanks up to a whole block.
std::string Header(const std::vector<std::string>& cards);

/// The header of an empty primary image, with more cards.
std::string Primary(const std::vector<std::string>& more = {});

/// The header of a table with one column of doubles, with more cards.
/// @param rows  the value of NAXIS2
std::string TableOfDoubles(const std::string& rows, const std::vector<std::string>& more = {});

/// Makes a file of these characters.
void WriteText(const std::string& path, const std::string& text);

}  // namespace quen::testing
