#include "workbench/fits/table.hpp"

#include <gtest/gtest.h>

#include <array>
#include <span>
#include <string>

#include "testing/environment.hpp"
#include "testing/exceptions.hpp"
#include "testing/fits_files.hpp"

namespace quen::workbench {
namespace {

using quen::testing::AppendTable;
using quen::testing::ExpectThrows;
using quen::testing::TempDir;

struct Row {
  std::int32_t number = 0;
  std::uint8_t flag = 0;
  std::uint16_t pixel = 0;
  double value = 0.0;
  std::string text;
  std::array<double, 2> pair = {};
};

constexpr std::array<Column<Row>, 6> kColumns = {
    {{"number", "", "", &Row::number},
     {"flag", "", "", &Row::flag},
     {"pixel", "pix", "", &Row::pixel},
     {"value", "", "", &Row::value},
     {"text", "", "", &Row::text},
     {"pair", "", "", [](Row& row) { return std::span<double>(row.pair); }}}};

/// What is wrong with a table "t" of three rows with this column, read as such rows have it.
void ExpectRefused(const std::string& name, const std::string& format, const std::vector<double>& values,
                   std::size_t as, const std::string& reason) {
  const TempDir folder;
  AppendTable(folder / "t.fits", "t", 3, {{name, format, values}});
  const InputFile file(folder / "t.fits");
  ExpectThrows<std::runtime_error>((folder / "t.fits") + ": " + reason,
                                   [&] { ReadRows<Row>(file, "t", std::span(kColumns).subspan(as, 1)); });
}

TEST(Table, RowsAreReadBackAsTheyWere) {
  const std::vector<Row> rows = {{-2147483647, 255, 32767, 1e300, std::string(300, 'x'), {1.0, 2.0}},
                                 {2147483647, 128, 0, -0.5, "short", {3.0, 4.0}},
                                 {0, 1, 1, 0.0, "a b", {-5.0, 6.0}}};
  MemoryFits fits;
  AppendRows<Row>(fits, "t", kColumns, rows);
  const std::vector<Row> found = ReadRows<Row>(InputFile::InMemory("t", fits.Bytes()), "t", kColumns);
  ASSERT_EQ(found.size(), rows.size());
  for (std::size_t k = 0; k < rows.size(); ++k) {
    EXPECT_EQ(found[k].number, rows[k].number);
    EXPECT_EQ(found[k].flag, rows[k].flag);
    EXPECT_EQ(found[k].pixel, rows[k].pixel);
    EXPECT_EQ(found[k].value, rows[k].value);
    EXPECT_EQ(found[k].text, rows[k].text);
    EXPECT_EQ(found[k].pair, rows[k].pair);
  }
}

TEST(Table, TextsAreNotCut) {
  Row row;
  row.text = std::string(301, 'x');
  MemoryFits fits;
  ExpectThrows<std::runtime_error>(
      "the table \"t\": expected texts of 300 bytes at most, found one of 301: " + row.text,
      [&] { AppendRows<Row>(fits, "t", kColumns, {row}); });
}

TEST(Table, PixelsBeyondSignedOnesAreNotWritten) {
  Row row;
  row.pixel = 32768;
  MemoryFits fits;
  EXPECT_THROW(AppendRows<Row>(fits, "t", kColumns, {row}), std::runtime_error);
  testing::ClearMessages();
}

TEST(Table, OtherColumnsAreRefused) {
  constexpr std::size_t kNumber = 0;
  constexpr std::size_t kText = 4;
  constexpr std::size_t kPair = 5;
  const std::string no_pair = "expected a column \"pair\" of 2 values in its table \"t\", found none";
  ExpectRefused("pair", "D", {}, kPair, no_pair);
  ExpectRefused("pair", "3D", {}, kPair, no_pair);
  ExpectRefused("PAIR", "2D", {}, kPair, no_pair);
  ExpectRefused("number", "D", {1.0, 2.0, 1e10}, kNumber, "its column \"number\" cannot be read (CFITSIO status 412)");
  ExpectRefused("text", "301A", {}, kText, "its column \"text\" cannot be read (CFITSIO status 261)");
}

}  // namespace
}  // namespace quen::workbench
