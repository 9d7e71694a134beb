#include <gtest/gtest.h>

#include <array>
#include <cstdint>

#include "common/fits/fits.hpp"
#include "testing/environment.hpp"
#include "testing/exceptions.hpp"
#include "testing/fits_files.hpp"
#include "testing/second_reader.hpp"
#include "testing/values.hpp"

namespace quen::common::Fits {
namespace {

using quen::testing::AppendTable;
using quen::testing::ClearMessages;
using quen::testing::ColumnData;
using quen::testing::ExpectThrows;
using quen::testing::ExpectThrowsWithDetails;
using quen::testing::kSentinel;
using quen::testing::Ramp;
using quen::testing::TempDir;
using quen::testing::WriteImage;

constexpr const char* kNotATable = "Fits: Handle opened for primary image HDU";
constexpr const char* kReadOnly = "Fits: Handle opened for reading only";

/// A file with one table "t".
class TableFile {
 public:
  explicit TableFile(const std::vector<ColumnData>& columns, long rows = 10, int type = BINARY_TBL) {
    AppendTable(path_, "t", rows, columns, type);
  }
  [[nodiscard]] Handle Open() const { return FitsFile(path_, "t"); }
  [[nodiscard]] Handle OpenForWriting() const { return FitsFileWrite(path_, false, "t"); }
  [[nodiscard]] const std::string& Path() const { return path_; }

 private:
  TempDir folder_;
  std::string path_ = folder_ / "table.fits";
};

TableFile ThreeColumns() {
  return TableFile({{"byte", "B", Ramp(10)}, {"word", "U", Ramp(10)}, {"real", "D", Ramp(10)}});
}

TEST(ReadTableParams, ListsAllColumnsInOrder) {
  const TableFile file = ThreeColumns();
  EXPECT_EQ(ReadTableParams(file.Open(), std::nullopt),
            (TableParams{{3, 10}, {{"byte", 1, 11}, {"word", 2, 21}, {"real", 3, 82}}}));
}

TEST(ReadTableParams, ListsTheNamedColumnOnly) {
  const TableFile file = ThreeColumns();
  EXPECT_EQ(ReadTableParams(file.Open(), "word"), (TableParams{{1, 10}, {{"word", 2, 21}}}));
}

TEST(ReadTableParams, UnknownNameGivesAnEmptyList) {
  const TableFile file = ThreeColumns();
  EXPECT_EQ(ReadTableParams(file.Open(), "none"), (TableParams{{0, 10}, {}}));
}

TEST(ReadTableParams, NamesAreComparedByteForByte) {
  const TableFile file = ThreeColumns();
  for (const char* const name : {"WORD", "Word", "wor", "word ", " word", "w*", "2", ""}) {
    EXPECT_EQ(ReadTableParams(file.Open(), name), (TableParams{{0, 10}, {}})) << name;
  }
}

TEST(ReadTableParams, FirstOfEqualNamesWins) {
  const TableFile file({{"a", "B", Ramp(2)}, {"b", "D", Ramp(2)}, {"b", "U", Ramp(2)}}, 2);
  EXPECT_EQ(ReadTableParams(file.Open(), "b"), (TableParams{{1, 2}, {{"b", 2, 82}}}));
}

TEST(ReadTableParams, TableWithoutColumnsHasAnEmptyList) {
  const TableFile file({}, 0);
  EXPECT_EQ(ReadTableParams(file.Open(), std::nullopt), (TableParams{{0, 0}, {}}));
}

TEST(ReadTableParams, ColumnNamedLikeAnotherColumnsNumberIsReportedWithoutDetails) {
  const TableFile file({{"2", "D", Ramp(2)}, {"1", "D", Ramp(2)}}, 2);
  ExpectThrows<std::runtime_error>("Fits: Error getting column params: ",
                                   [&] { ReadTableParams(file.Open(), std::nullopt); });
}

TEST(ReadTableParams, ColumnThatCfitsioCannotDescribeIsReported) {
  const TableFile file({{"1", "D", Ramp(2)}, {"1", "D", Ramp(2)}}, 2);
  ExpectThrowsWithDetails<std::runtime_error>("Fits: Error getting column params: ",
                                              [&] { ReadTableParams(file.Open(), std::nullopt); });
}

TEST(ReadTableParams, RefusesImagesAndUnknownHdus) {
  const TempDir folder;
  WriteImage(folder / "image.fits", SHORT_IMG, {1}, {1});
  ExpectThrows<std::runtime_error>(
      kNotATable, [&] { ReadTableParams(FitsFile(folder / "image.fits", std::nullopt), std::nullopt); });
  const Handle fresh = FitsFileWrite(folder / "new.fits", true, "t");
  ExpectThrows<std::runtime_error>(kNotATable, [&] { ReadTableParams(fresh, std::nullopt); });
}

TEST(ReadTableParams, CfitsioFailureIsReported) {
  // A handle that claims to stand on a table while it stands on an image: CFITSIO refuses the query.
  const TempDir folder;
  WriteImage(folder / "image.fits", SHORT_IMG, {1}, {1});
  const Handle image = FitsFile(folder / "image.fits", std::nullopt);
  image->hdu_type = 2;
  ExpectThrowsWithDetails<std::runtime_error>("Fits: Error getting table params: ",
                                              [&] { ReadTableParams(image, std::nullopt); });
}

TEST(ReadTableParams, AcceptsAsciiTables) {
  const TableFile file({{"a", "F10.3", Ramp(4)}, {"b", "I6", Ramp(4)}}, 4, ASCII_TBL);
  const TableParams params = ReadTableParams(file.Open(), std::nullopt);
  EXPECT_EQ(params.first, (std::vector<unsigned long>{2, 4}));
  EXPECT_EQ(std::get<0>(params.second[1]), "b");
  EXPECT_EQ(ReadColumnOrThrow<double>(file.Open(), "a"), Ramp(4));
}

TEST(ReadColumnPriv, FillsTheBufferAndReturnsItsCapacity) {
  const TableFile file = ThreeColumns();
  std::vector<double> buffer(12, kSentinel);
  EXPECT_EQ(ReadColumnPriv(file.Open(), buffer.data(), buffer.size(), 82, "word"), 12U);
  std::vector<double> expected = Ramp(10);
  expected.resize(12, kSentinel);
  EXPECT_EQ(buffer, expected);
}

TEST(ReadColumnPriv, UnknownColumnIsNotFoud) {
  const TableFile file = ThreeColumns();
  double value = 0;
  ExpectThrows<std::invalid_argument>("Fits: Column \"none\" not foud",
                                      [&] { ReadColumnPriv(file.Open(), &value, 0, 82, "none"); });
}

TEST(ReadColumnPriv, ShortBufferIsReportedWithBothNumbers) {
  const TableFile file = ThreeColumns();
  std::vector<double> buffer(10, kSentinel);
  ExpectThrows<std::invalid_argument>("Fits: Provided buffer is too small, expected at least: 10 , acctual: 9",
                                      [&] { ReadColumnPriv(file.Open(), buffer.data(), 9, 82, "real"); });
  EXPECT_EQ(buffer, std::vector<double>(10, kSentinel));
}

TEST(ReadColumnPriv, OneElementPerRowOfAWideColumn) {
  const TableFile file({{"wide", "3D", Ramp(6)}}, 2);
  EXPECT_EQ(ReadColumnOrThrow<double>(file.Open(), "wide"), Ramp(2));
}

TEST(ReadColumnPriv, ValueThatDoesNotFitTheBuffersTypeIsAReadFailure) {
  const TableFile file({{"a", "D", {70000}}}, 1);
  std::uint16_t value = 0;
  ExpectThrowsWithDetails<std::runtime_error>("Fits: Error reading column \"a\": ",
                                              [&] { ReadColumnPriv(file.Open(), &value, 1, 21, "a"); });
}

TEST(ReadColumnPriv, UndefinedEntriesAreReported) {
  const TableFile file({{"flag", "L", {}}}, 2);  // never written: neither true nor false
  std::array<char, 2> flags{};
  ExpectThrows<std::runtime_error>("Fits: Column \"flag\" contains undefined entries",
                                   [&] { ReadColumnPriv(file.Open(), flags.data(), 2, TLOGICAL, "flag"); });
}

TEST(ReadColumnPriv, RefusesImages) {
  const TempDir folder;
  WriteImage(folder / "image.fits", SHORT_IMG, {1}, {1});
  double value = 0;
  ExpectThrows<std::runtime_error>(
      kNotATable, [&] { ReadColumnPriv(FitsFile(folder / "image.fits", std::nullopt), &value, 1, 82, "a"); });
}

TEST(ReadColumnOrThrow, ReadsEachElementType) {
  const TableFile file = ThreeColumns();
  EXPECT_EQ(ReadColumnOrThrow<std::uint8_t>(file.Open(), "byte"),
            (std::vector<std::uint8_t>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
  EXPECT_EQ(ReadColumnOrThrow<std::uint16_t>(file.Open(), "word"),
            (std::vector<std::uint16_t>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
  EXPECT_EQ(ReadColumnOrThrow<double>(file.Open(), "real"), Ramp(10));
}

TEST(ReadColumnOrThrow, SixteenBitDataTravelsUnderTheSignedCode) {
  // Negative numbers arrive as their two's complement, and 32768 is out of range.
  const TableFile file({{"a", "I", {-1}}, {"b", "U", {32767}}, {"c", "U", {32768}}}, 1);
  EXPECT_EQ(ReadColumnOrThrow<std::uint16_t>(file.Open(), "a"), std::vector<std::uint16_t>{65535});
  EXPECT_EQ(ReadColumnOrThrow<std::uint16_t>(file.Open(), "b"), std::vector<std::uint16_t>{32767});
  ExpectThrowsWithDetails<std::runtime_error>("Fits: Error reading column \"c\": ",
                                              [&] { ReadColumnOrThrow<std::uint16_t>(file.Open(), "c"); });
}

TEST(ReadColumnOrThrow, TableWithoutRowsGivesAnEmptyVector) {
  const TableFile file({{"a", "D", {}}}, 0);
  EXPECT_TRUE(ReadColumnOrThrow<double>(file.Open(), "a").empty());
}

TEST(ReadColumnOrThrow, MissingColumnIsMisconfigured) {
  const TableFile file = ThreeColumns();
  ExpectThrows<std::runtime_error>("ReadColumnOrThrow: misconfigured column: none",
                                   [&] { ReadColumnOrThrow<double>(file.Open(), "none"); });
}

TEST(WriteTable, NewTableIsReadByASecondReader) {
  const TempDir folder;
  const std::string path = folder / "a.fits";
  const std::vector<std::uint8_t> bytes = {1, 2, 255};
  const std::vector<std::uint16_t> words = {3, 4, 32767};
  const std::vector<double> reals = {0.5, -1e300, 6};
  {
    const Handle handle = FitsFileWrite(path, false, "new");
    WriteTable(handle, {{"byte", "B"}, {"word", "U"}, {"real", "D"}});
    EXPECT_EQ(handle->hdu_type, 2);
    EXPECT_EQ(ReadTableParams(handle, std::nullopt),
              (TableParams{{3, 0}, {{"byte", 1, 11}, {"word", 2, 21}, {"real", 3, 82}}}));
    EXPECT_EQ(WriteColumnPriv(handle, bytes.data(), 3, 11, 1, 1), 3U);
    EXPECT_EQ(WriteColumnPriv(handle, words.data(), 3, 21, "word", 1), 3U);
    EXPECT_EQ(WriteColumnPriv(handle, reals.data(), 3, 82, "real", 1), 3U);
  }
  EXPECT_EQ(testing::ComplaintsOfFitsverify(path), "");
  EXPECT_EQ(testing::DescribedByAstropy(path), "0 image '' 8\n1 table 'new' 3 byte:B word:I real:D\n");
  EXPECT_EQ(testing::ColumnsReadByAstropy(path, "new", {"byte", "word", "real"}),
            (std::vector<std::vector<double>>{{1, 2, 255}, {3, 4, 32767}, reals}));
}

TEST(WriteTable, IsAppendedAfterTheTablesOfAnExistingFile) {
  const TableFile file = ThreeColumns();
  WriteTable(FitsFileWrite(file.Path(), false, "second"), {{"x", "D"}});
  EXPECT_EQ(FitsFile(file.Path(), "second")->hdu_type, 2);
  EXPECT_EQ(ReadColumnOrThrow<double>(file.Open(), "real"), Ramp(10));
}

TEST(WriteTable, UsesTheFirst64ColumnsWithoutUnits) {
  const TempDir folder;
  const std::string path = folder / "a.fits";
  std::vector<std::pair<std::string, std::string>> columns;
  for (int k = 1; k <= 70; ++k) columns.emplace_back("c" + std::to_string(k), "D");
  const Handle handle = FitsFileWrite(path, true, "many");
  WriteTable(handle, columns);
  const TableParams params = ReadTableParams(handle, std::nullopt);
  EXPECT_EQ(params.first, (std::vector<unsigned long>{64, 0}));
  EXPECT_EQ(std::get<0>(params.second.back()), "c64");
  std::array<char, FLEN_VALUE> unit{};
  int status = 0;
  EXPECT_EQ(fits_read_key_str(handle->file, "TUNIT1", unit.data(), nullptr, &status), KEY_NO_EXIST);
}

TEST(WriteTable, ReadOnlyComesBeforeTheMissingName) {
  const TempDir folder;
  WriteImage(folder / "image.fits", SHORT_IMG, {1}, {1});
  ExpectThrows<std::runtime_error>(kReadOnly, [&] {
    WriteTable(FitsFile(folder / "image.fits", std::nullopt), {{"a", "D"}});
  });
}

TEST(WriteTable, NeedsAnExtensionName) {
  const TempDir folder;
  const Handle handle = FitsFileWrite(folder / "a.fits", true, std::nullopt);
  ExpectThrows<std::runtime_error>(kNotATable, [&] { WriteTable(handle, {{"a", "D"}}); });
  EXPECT_EQ(handle->hdu_type, -1);
}

TEST(WriteTable, CfitsioFailureIsReportedAndTheTypeStaysSet) {
  const TempDir folder;
  const Handle handle = FitsFileWrite(folder / "a.fits", true, "t");
  ExpectThrowsWithDetails<std::runtime_error>("Fits: Could not create table, details: ", [&] {
    WriteTable(handle, {{"a", "?"}});
  });
  EXPECT_EQ(handle->hdu_type, 2);
}

TEST(WriteColumnByNumber, WritingBeyondTheLastRowExtendsTheTable) {
  const TempDir folder;
  const Handle handle = FitsFileWrite(folder / "a.fits", true, "t");
  WriteTable(handle, {{"a", "D"}});
  const double value = 2.5;
  EXPECT_EQ(WriteColumnPriv(handle, &value, 1, 82, 1, 5), 1U);
  EXPECT_EQ(ReadColumnOrThrow<double>(handle, "a"), (std::vector<double>{0, 0, 0, 0, 2.5}));
}

TEST(WriteColumnByNumber, RefusesAReadOnlyHandle) {
  const TableFile file = ThreeColumns();
  const double value = 2.5;
  ExpectThrows<std::runtime_error>(kReadOnly, [&] { WriteColumnPriv(file.Open(), &value, 1, 82, 3, 1); });
}

TEST(WriteColumnByNumber, CfitsioFailureNamesTheColumn) {
  const TableFile file = ThreeColumns();
  const double value = 2.5;
  ClearMessages();
  ExpectThrowsWithDetails<std::runtime_error>("Fits: Error writing column 4: ",
                                              [&] { WriteColumnPriv(file.OpenForWriting(), &value, 1, 82, 4, 1); });
  ExpectThrowsWithDetails<std::runtime_error>("Fits: Error writing column -1: ",
                                              [&] { WriteColumnPriv(file.OpenForWriting(), &value, 1, 82, -1, 1); });
}

TEST(WriteColumnByNumber, DoesNotAskForTheHduType) {
  const TableFile file = ThreeColumns();
  const Handle handle = file.OpenForWriting();
  handle->hdu_type = -1;
  const double value = 2.5;
  EXPECT_EQ(WriteColumnPriv(handle, &value, 1, 82, 3, 1), 1U);
}

TEST(WriteColumnByName, ReadOnlyComesFirst) {
  const TempDir folder;
  WriteImage(folder / "image.fits", SHORT_IMG, {1}, {1});
  const double value = 2.5;
  ExpectThrows<std::runtime_error>(
      kReadOnly, [&] { WriteColumnPriv(FitsFile(folder / "image.fits", std::nullopt), &value, 1, 82, "a", 1); });
}

TEST(WriteColumnByName, RefusesUnknownHdus) {
  const TempDir folder;
  const Handle handle = FitsFileWrite(folder / "a.fits", true, "t");
  const double value = 2.5;
  ExpectThrows<std::runtime_error>(kNotATable, [&] { WriteColumnPriv(handle, &value, 1, 82, "a", 1); });
}

TEST(WriteColumnByName, UnknownColumnIsNotFound) {
  const TableFile file = ThreeColumns();
  const double value = 2.5;
  ExpectThrows<std::invalid_argument>("Fits: Column \"none\" not found",
                                      [&] { WriteColumnPriv(file.OpenForWriting(), &value, 1, 82, "none", 1); });
}

TEST(WriteColumnByName, OtherDatatypeIsRefusedAndNothingWritten) {
  const TableFile file = ThreeColumns();
  const std::array<double, 2> values = {1000, 1001};
  ExpectThrows<std::invalid_argument>("Fits: Column \"word\" (index: 2) data type mismatch, expected: 82 , acctual: 21",
                                      [&] { WriteColumnPriv(file.OpenForWriting(), values.data(), 2, 82, "word", 1); });
  EXPECT_EQ(ReadColumnOrThrow<double>(file.Open(), "word"), Ramp(10));
}

TEST(WriteColumnByName, WritesFromAnyRow) {
  const TableFile file = ThreeColumns();
  const std::array<double, 2> values = {1000, 1001};
  EXPECT_EQ(WriteColumnPriv(file.OpenForWriting(), values.data(), 2, 82, "real", 10), 2U);
  std::vector<double> expected = Ramp(9);
  expected.insert(expected.end(), {1000, 1001});
  EXPECT_EQ(ReadColumnOrThrow<double>(file.Open(), "real"), expected);
}

}  // namespace
}  // namespace quen::common::Fits
