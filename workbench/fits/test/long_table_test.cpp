#include "workbench/fits/long_table.hpp"

#include <fitsio.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "workbench/fits/memory_fits.hpp"

namespace quen::workbench {
namespace {

MemoryFits WithoutRows() {
  MemoryFits fits(MemoryFits::Dates::kNone);
  fits.AddTable("numbers", {{"number", "D"}, {"text", "3A"}, {"count", "K"}});
  return fits;
}

struct Columns {
  std::vector<double> numbers;
  std::vector<std::string> texts;
  std::vector<LONGLONG> counts;
};

Columns WithRows(std::size_t rows) {
  Columns columns;
  for (std::size_t row = 0; row < rows; ++row) {
    columns.numbers.push_back(row == 2 ? std::numeric_limits<double>::quiet_NaN() : std::sqrt(row) - 3.0);
    columns.texts.push_back(std::string(row % 4, static_cast<char>('a' + row % 26)));
    columns.counts.push_back(static_cast<LONGLONG>(row) * 123456789 - 1000);
  }
  return columns;
}

/// The file that the FITS library makes of them.
std::string ByTheLibrary(Columns columns) {
  MemoryFits fits = WithoutRows();
  fitsfile* const file = fits.Image()->file;  // it stands on the table
  const auto rows = static_cast<LONGLONG>(columns.numbers.size());
  std::vector<char*> texts;
  for (std::string& text : columns.texts) texts.push_back(text.data());
  int status = 0;
  if (rows > 0) {
    fits_write_col(file, TDOUBLE, 1, 1, 1, rows, columns.numbers.data(), &status);
    fits_write_col(file, TSTRING, 2, 1, 1, rows, texts.data(), &status);
    fits_write_col(file, TLONGLONG, 3, 1, 1, rows, columns.counts.data(), &status);
  }
  EXPECT_EQ(status, 0);
  return fits.Bytes();
}

void AppendWord(std::string& row, std::uint64_t word) {
  for (int shift = 56; shift >= 0; shift -= 8) row += static_cast<char>(word >> static_cast<unsigned int>(shift));
}

struct Handed {
  std::string file;
  std::size_t largest = 0;  ///< piece
};

Handed ByParts(const Columns& columns) {
  Handed handed;
  LongTable table(WithoutRows().Bytes(), [&](std::string_view bytes, std::size_t position) {
    handed.largest = std::max(handed.largest, bytes.size());
    handed.file.resize(std::max(handed.file.size(), position + bytes.size()));
    handed.file.replace(position, bytes.size(), bytes);
  });
  for (std::size_t k = 0; k < columns.numbers.size(); ++k) {
    std::string row;
    AppendWord(row, std::bit_cast<std::uint64_t>(columns.numbers[k]));
    row += columns.texts[k] + std::string(3 - columns.texts[k].size(), ' ');
    AppendWord(row, static_cast<std::uint64_t>(columns.counts[k]));
    table.Add(row);
  }
  table.End();
  return handed;
}

TEST(LongTable, IsByteForByteWhatTheFitsLibraryMakes) {
  for (const std::size_t rows : {0U, 1U, 2U, 5U, 151U, 152U, 1000U, 400000U}) {
    const Columns columns = WithRows(rows);
    EXPECT_TRUE(ByParts(columns).file == ByTheLibrary(columns)) << rows;
  }
}

TEST(LongTable, IsHandedOnInPieces) {
  EXPECT_LT(ByParts(WithRows(400000)).largest, 3U << 20U);  // of 7.6 MB
}

}  // namespace
}  // namespace quen::workbench
