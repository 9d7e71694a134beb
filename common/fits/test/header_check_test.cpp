#include "common/fits/src/header_check.hpp"

#include <fitsio.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "common/fits/fits.hpp"
#include "common/fits/src/status.hpp"
#include "testing/allocations.hpp"
#include "testing/environment.hpp"
#include "testing/exceptions.hpp"
#include "testing/fits_files.hpp"

namespace quen::common::Fits {
namespace {

using quen::testing::Header;
using quen::testing::Primary;
using quen::testing::TableOfDoubles;
using quen::testing::TempDir;
using quen::testing::WriteText;

/// What is found on the way to an HDU of a file with this content, as "status: reason"; "stuck" where it is not to be
/// gone through for writing; empty for nothing.
std::string Verdict(const std::string& content, const std::string& hdu = "[9]") {
  const TempDir folder;
  WriteText(folder / "a.fits", content);
  const Way way = WayTo((folder / "a.fits") + hdu);
  if (way.status != 0) return std::to_string(way.status) + ": " + way.reason;
  return way.can_be_left ? "" : "stuck";
}

// NOLINTBEGIN(cert-err58-cpp): texts that fit into memory.
const std::string kLongName = "TTYPE1  = " + std::string(70, '7');
const std::string kTooLong = "205: TTYPE1 in the header has too long a value.";
const std::string kData(2880, '\0');
// NOLINTEND(cert-err58-cpp)

TEST(HeaderCheck, GoodFilesPass) {
  EXPECT_EQ(Verdict(Primary()), "");
  EXPECT_EQ(Verdict(Primary() + TableOfDoubles("1") + kData), "");
}

TEST(HeaderCheck, OtherFilesAreNotItsBusiness) {
  const std::string damaged = TableOfDoubles("1", {kLongName});
  EXPECT_EQ(Verdict(""), "");
  EXPECT_EQ(Verdict("SIMPLE"), "");
  EXPECT_EQ(Verdict("text" + damaged), "");
  EXPECT_EQ(Verdict(damaged), "");
  EXPECT_EQ(WayTo("/no/such/file.fits").status, 0);
  EXPECT_EQ(WayTo(std::string(3000, 'x')).status, 0);
  EXPECT_EQ(WayTo(std::filesystem::temp_directory_path().string()).status, 0);
  const TempDir folder;
  ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(WayTo(folder / "pipe").status, 0);  // and does not wait for its other end
}

TEST(HeaderCheck, WayEndsAtTheHduAskedFor) {
  const std::string content =
      Primary() + TableOfDoubles("1", {"EXTNAME = 'first'"}) + kData + TableOfDoubles("1", {kLongName}) + kData;
  for (const char* const before : {"", "[0]", "[1]", "+1", "[first]", "[FIRST]"}) {
    EXPECT_EQ(Verdict(content, before), "") << before;
  }
  for (const char* const behind : {"[2]", "+2", "[second]", "[second][x > 1]"}) {
    EXPECT_EQ(Verdict(content, behind), kTooLong) << behind;
  }
}

TEST(HeaderCheck, WayToATableOverlooksImagesOfItsName) {
  const TempDir folder;
  const std::string path = folder / "a.fits";
  const std::string image = Header({"XTENSION= 'IMAGE'", "BITPIX  = 8", "NAXIS   = 0", "EXTNAME = 'rois'"});
  WriteText(path, Primary() + image + TableOfDoubles("1", {kLongName}));
  EXPECT_EQ(WayTo(path + "[rois]").status, 0);
  EXPECT_EQ(WayToTable(path, "rois").status, NO_QUOTE);
  EXPECT_EQ(WayFrom(path, 2L * 2880).status, NO_QUOTE);
  EXPECT_EQ(WayFrom(path, 3L * 2880).status, 0);
}

TEST(HeaderCheck, ParsingAnOddNameLeavesTheMessagesOfOthers) {
  testing::ClearMessages();
  fits_write_errmsg("first");
  fits_write_errmsg("second");
  for (const char* const name : {"a.fits[1", "a.fits[rois][x", "nothing://a.fits", "a.fits[1,2,3,4]"}) WayTo(name);
  EXPECT_EQ(ReadStatus(104), "could not open the named file, firstsecond");
}

TEST(HeaderCheck, NamesOfColumnsLongerThanTheirRoomAreRefused) {
  const auto table = [](const std::string& card) { return Verdict(Primary() + TableOfDoubles("1", {card}) + kData); };
  const std::string digits(70, '7');
  EXPECT_EQ(table("TTYPE1  = " + digits), kTooLong);
  EXPECT_EQ(table("TTYPE1  = (" + digits.substr(2) + ")"), kTooLong);
  EXPECT_EQ(table("TTYPE1  = (" + digits.substr(35) + " " + digits.substr(36) + ")"), kTooLong);
  EXPECT_EQ(table("TTYPE1  = " + digits.substr(1)), "");
  EXPECT_EQ(table("TTYPE1  =  " + digits.substr(1)), "");
  EXPECT_EQ(table("TTYPE1  =" + digits), "");
  EXPECT_EQ(table("TTYPE1  = " + digits.substr(2) + " /"), "");
  EXPECT_EQ(table("TTYPE1  = " + digits.substr(2) + "/7"), "");
  EXPECT_EQ(table("TTYPE1  = '" + digits.substr(2) + "'"), "");
  EXPECT_EQ(table("TTYPE2  = " + digits), "");  // there is no second column
  EXPECT_EQ(table("TTYPES  = " + digits), "");
  EXPECT_EQ(table("TTYPE1A = " + digits), "");
  EXPECT_EQ(table("TUNIT1  = " + digits), "");
  EXPECT_EQ(Verdict(Primary({kLongName})), "");
}

TEST(HeaderCheck, MoreAxesThanThereIsRoomForAreRefused) {
  const auto image = [](int axes, const std::string& last) {
    std::vector<std::string> cards = {"SIMPLE  = T", "BITPIX  = 8", "NAXIS   = " + std::to_string(axes)};
    for (int axis = 1; axis < axes; ++axis) {
      std::string card = "NAXIS" + std::to_string(axis);
      card.resize(8, ' ');
      cards.push_back(card + "= 1");
    }
    cards.push_back("NAXIS" + std::to_string(axes) + (axes < 100 ? " " : "") + "= " + last);
    return Verdict(Header(cards) + kData, "");
  };
  EXPECT_EQ(image(99, "1"), "");
  EXPECT_EQ(image(100, "1"), "212: NAXIS in the header has too many axes.");
  EXPECT_EQ(image(100, "-1"), "212: NAXIS in the header has too many axes.");
}

TEST(HeaderCheck, TilesAtWhichCfitsioBreaksAreRefused) {
  const auto tiles = [](const std::string& compression, const std::vector<std::string>& more) {
    std::vector<std::string> cards = {
        "ZIMAGE  = T", "ZCMPTYPE= '" + compression + "'", "ZBITPIX = 16", "ZNAXIS  = 2", "ZNAXIS1 = 6", "ZNAXIS2 = 4"};
    cards.insert(cards.end(), more.begin(), more.end());
    return Verdict(Primary() + TableOfDoubles("4", cards) + kData);
  };
  const auto none = [](const std::string& keyword) {
    return "213: " + keyword + " in the header is no size of a tile.";
  };
  const std::string sevens(30, '7');
  for (const char* const zero : {"0", "-0", "0.0", "0.5", "'0'", "' 0'", "'0 1'", "'0E5'", "''", "F"}) {
    EXPECT_EQ(tiles("GZIP_1", {std::string("ZTILE1  = ") + zero}), none("ZTILE1")) << zero;
    EXPECT_EQ(tiles("RICE_1", {std::string("ZVAL1   = ") + zero}), none("ZVAL1")) << zero;
    EXPECT_EQ(tiles("GZIP_1", {std::string("ZVAL1   = ") + zero}), "") << zero;
  }
  for (const char* const other : {"", "1", "1.0", "T", "-1", "'1'", "'none'", "0E5x", "4611686018427387904"}) {
    EXPECT_EQ(tiles("RICE_1", {std::string("ZTILE1  = ") + other, "ZVAL1   = 32"}), "") << other;
    EXPECT_EQ(tiles("RICE_1", {std::string("ZVAL1   = ") + other}), "") << other;
  }
  EXPECT_EQ(tiles("RICE_1", {"ZVAL1   = 0", "ZVAL2   = 8"}), none("ZVAL1"));
  EXPECT_EQ(tiles("RICE_1", {"ZVAL1   = 0", "ZVAL2   = 9"}), "");  // taken for each other
  EXPECT_EQ(tiles("RICE_1", {"ZVAL1   = " + sevens}), none("ZVAL1"));
  EXPECT_EQ(tiles("RICE_1", {"ZVAL1   = 32", "ZVAL2   = " + sevens}), none("ZVAL2"));
  EXPECT_EQ(tiles("RICE_1", {"ZVAL2   = " + sevens}), "");
  EXPECT_EQ(tiles("RICE_1", {"ZVAL1   = 32", "ZVAL9   = " + sevens}), "");
  EXPECT_EQ(tiles("HCOMPRESS_1", {"ZVAL1   = " + sevens}), "");
  EXPECT_EQ(tiles("HCOMPRESS_1", {"ZVAL1   = 0", "ZVAL2   = " + sevens}), none("ZVAL2"));
  EXPECT_EQ(tiles("GZIP_1", {"ZNAXIS  = " + sevens}), none("ZNAXIS"));
  EXPECT_EQ(tiles("GZIP_1", {"ZNAXIS  = 7", "ZTILE1  = 0"}), "");  // more axes than it looks at
}

TEST(HeaderCheck, DataThatLeadBackAreRefused) {
  const std::vector<std::string> back = {"NAXIS1  = 64", "NAXIS2  = 288230376151711654"};  // 2^64 - 5760 bytes in all
  EXPECT_EQ(Verdict(Primary() + Header({"XTENSION= 'IMAGE'", "BITPIX  = 8", "NAXIS   = 2", back[0], back[1]})),
            "213: NAXIS in the header declares data without end.");
}

TEST(HeaderCheck, FilesThatLackMuchOrAddUpToNothingAreNotGoneThroughForWriting) {
  EXPECT_EQ(Verdict(Primary() + TableOfDoubles("12000000")), "");  // 96 MB
  EXPECT_EQ(Verdict(Primary() + TableOfDoubles("13000000")), "stuck");
  EXPECT_EQ(Verdict(Primary() + TableOfDoubles("13000000"), "[1]"), "");  // nothing is left there
  EXPECT_EQ(Verdict(Primary() + TableOfDoubles("1", {"PCOUNT  = 9223372036854775807"})), "stuck");
  EXPECT_EQ(Verdict(Primary() + TableOfDoubles("1", {"THEAP   = -9000"})), "stuck");
  EXPECT_EQ(Verdict(Primary() + TableOfDoubles("1", {"THEAP   = -8000"}) + kData), "");
  EXPECT_EQ(Verdict(Primary() + TableOfDoubles("1", {"THEAP   = 200000000"})), "stuck");
  EXPECT_EQ(Verdict(Header({"SIMPLE  = T", "BITPIX  = 32", "NAXIS   = 2", "NAXIS1  = 0", "NAXIS2  = 100000000",
                            "GROUPS  = T", "GCOUNT  = 1"})),
            "stuck");
}

TEST(HeaderCheck, HeadersBehindDataAndHeadersWithoutEndAreLookedThrough) {
  std::string card = kLongName;
  card.resize(80, ' ');
  EXPECT_EQ(Verdict(Primary() + TableOfDoubles("361") + kData + kData + TableOfDoubles("1", {card})),
            kTooLong);  // 361 * 8: two blocks
  EXPECT_EQ(Verdict(Primary() + TableOfDoubles("1", {card}).substr(0, 10UL * 80)), kTooLong);
  EXPECT_EQ(Verdict(Primary() + TableOfDoubles("1", {card}).substr(0, 10UL * 80 - 1)), "");
  // Data are not taken for cards.
  const std::string text_as_data = TableOfDoubles("1", {card}) + kData;
  EXPECT_EQ(Verdict(Primary() + TableOfDoubles("361") + text_as_data + TableOfDoubles("1") + kData), "");
  std::vector<std::string> many(40, "COMMENT");
  many.push_back(card);
  EXPECT_EQ(Verdict(Primary() + TableOfDoubles("1", many)), kTooLong);
}

TEST(HeaderCheck, RefusalIsAFailureToOpen) {
  const TempDir folder;
  const std::string path = folder / "a.fits";
  WriteText(path, Primary() + TableOfDoubles("1", {kLongName}));
  testing::ClearMessages();
  testing::ExpectThrows<std::runtime_error>(
      "Fits: Could not open " + path +
          ", details: string missing closing quote, TTYPE1 in the header has too long a value.",
      [&] { FitsFile(path, "rois"); });
  EXPECT_EQ(FitsFile(path, std::nullopt)->hdu_type, 0);
}

/// The file is there to be written to; the table that cannot be looked at is taken for missing, and none can be
/// appended.
TEST(HeaderCheck, FileToBeWrittenToIsOpenedAllTheSame) {
  const TempDir folder;
  const std::string path = folder / "a.fits";
  WriteText(path, Primary() + TableOfDoubles("1", {kLongName, "EXTNAME = 'rois'"}) + kData);
  const std::vector<char> before = testing::Bytes(path);
  for (const char* const extension : {"rois", "new"}) {
    const Handle file = FitsFileWrite(path, false, extension);
    EXPECT_NE(file->file, nullptr);
    EXPECT_EQ(file->hdu_type, -1);
    testing::ClearMessages();
    testing::ExpectThrows<std::runtime_error>(
        "Fits: Could not create table, details: string missing closing quote, TTYPE1 in the header has too long a "
        "value.",
        [&] {
          WriteTable(file, {{"x", "D"}});
        });
  }
  EXPECT_EQ(testing::Bytes(path).size(), before.size());
}

// --- Data that are not there ---------------------------------------------------------------------------------------

/// Such a file is opened for writing, and neither its tables nor the disk are filled up.
TEST(MissingData, FileThatLacksGigabytesIsOpenedForWritingAndStaysAsItIs) {
  const TempDir folder;
  const std::string path = folder / "a.fits";
  const std::string lacking = "The file lacks more than 100 MB of the data that it declares.";
  for (const char* const rows : {"250000000", "9000000000000000"}) {
    WriteText(path, Primary() + TableOfDoubles(rows, {"TTYPE1  = 'x'", "EXTNAME = 'rois'"}));
    const std::vector<char> before = testing::Bytes(path);
    for (const char* const extension : {"rois", "new"}) {
      const Handle file = FitsFileWrite(path, false, extension);
      EXPECT_EQ(file->hdu_type, extension == std::string("rois") ? BINARY_TBL : -1);
      const double value = 1.0;
      testing::ClearMessages();
      EXPECT_THROW(WriteTable(file, {{"x", "D"}}), std::runtime_error);
      if (file->hdu_type != BINARY_TBL || extension == std::string("new")) continue;
      testing::ClearMessages();
      testing::ExpectThrows<std::runtime_error>(
          "Fits: Error writing column 1: tried to move past end of file, " + lacking,
          [&] { WriteColumnPriv(file, &value, 1, TDOUBLE, 1, 1); });
    }
    EXPECT_NE(FitsFileWrite(path, false, std::nullopt)->file, nullptr);
    EXPECT_EQ(testing::Bytes(path).size(), before.size());
  }
}

TEST(MissingData, RowsOfListsThatAreNotThereAreNotGoneOver) {
  const auto lists = [](const std::string& rows, const std::string& heap, const std::string& format) {
    return Primary() + Header({"XTENSION= 'BINTABLE'", "BITPIX  = 8", "NAXIS   = 2", "NAXIS1  = 8", "NAXIS2  = " + rows,
                               "PCOUNT  = " + heap, "GCOUNT  = 1", "TFIELDS = 1", "TTYPE1  = 'x'",
                               "TFORM1  = '" + format + "'", "THEAP   = 8", "EXTNAME = 'rois'"});
  };
  EXPECT_EQ(Verdict(lists("300000000", "8", "1PD") + kData), "stuck");
  EXPECT_EQ(Verdict(lists("300000000", "8", "QD") + kData), "stuck");
  EXPECT_EQ(Verdict(lists("100000000", "8", "1PD") + kData), "");
  EXPECT_EQ(Verdict(lists("300000000", "0", "1PD") + kData), "");
  EXPECT_EQ(Verdict(lists("300000000", "8", "D") + kData), "");
  const TempDir folder;
  const std::string path = folder / "a.fits";
  WriteText(path, lists("9000000000000", "8", "1PD") + kData);
  const std::vector<char> before = testing::Bytes(path);
  FitsFile(path, "rois");  // would take hours
  FitsFileWrite(path, false, "rois");
  EXPECT_EQ(testing::Bytes(path), before);
}

/// The parameters and the number of "random groups" stay in the header, and count for the new image.
TEST(MissingData, ImageIsNotWrittenWhereTheHeaderMultipliesIt) {
  const TempDir folder;
  const std::string path = folder / "a.fits";
  const std::vector<double> ramp = testing::Ramp(24);
  for (const char* const card : {"PCOUNT  = 2147483647", "PCOUNT  = 4611686018427387904", "GCOUNT  = 2147483647"}) {
    WriteText(path, Header({"SIMPLE  = T", "BITPIX  = 16", "NAXIS   = 2", "NAXIS1  = 0", "NAXIS2  = 6", "GROUPS  = T",
                            card[0] == 'G' ? "PCOUNT  = 2" : "GCOUNT  = 3", card}) +
                        kData);
    const std::vector<char> before = testing::Bytes(path);
    testing::ClearMessages();
    testing::ExpectThrows<std::runtime_error>(
        "Fits: Error writing image: tried to move past end of file, The file lacks more than 100 MB of the data that "
        "it "
        "declares.",
        [&] {
          WriteImgPriv(FitsFileWrite(path, false, std::nullopt), ramp.data(), ramp.size(), DOUBLE_IMG, TDOUBLE, {6, 4});
        });
    EXPECT_EQ(testing::Bytes(path).size(), before.size()) << card;
  }
}

TEST(MissingData, ImageIsWrittenOverOneThatLacksGigabytes) {
  const TempDir folder;
  const std::string path = folder / "a.fits";
  WriteText(path, Header({"SIMPLE  = T", "BITPIX  = -64", "NAXIS   = 2", "NAXIS1  = 100000", "NAXIS2  = 100000"}));
  const std::vector<double> ramp = testing::Ramp(24);
  WriteImgPriv(FitsFileWrite(path, false, std::nullopt), ramp.data(), ramp.size(), DOUBLE_IMG, TDOUBLE, {6, 4});
  std::vector<double> found(24);
  ReadImgPriv(FitsFile(path, std::nullopt), found.data(), found.size(), DOUBLE_IMG, TDOUBLE, {{6, 4}});
  EXPECT_EQ(found, ramp);
}

/// CFITSIO would put zeros in place of all that is taken away.
TEST(MissingData, ImageIsNotWrittenOverALargerOneThatLacksGigabytes) {
  const TempDir folder;
  const std::string path = folder / "a.fits";
  WriteText(path, Header({"SIMPLE  = T", "BITPIX  = -64", "NAXIS   = 2", "NAXIS1  = 100000", "NAXIS2  = 100000"}) +
                      kData + kData);
  const std::vector<double> ramp = testing::Ramp(24);
  EXPECT_THROW(
      WriteImgPriv(FitsFileWrite(path, false, std::nullopt), ramp.data(), ramp.size(), DOUBLE_IMG, TDOUBLE, {6, 4}),
      std::runtime_error);
  EXPECT_EQ(testing::Bytes(path).size(), 3U * 2880);
}

/// CFITSIO takes the data of a table without rows for none, whatever its heap is to hold.
TEST(MissingData, TableWithoutRowsLacksNothing) {
  const TempDir folder;
  const std::string path = folder / "a.fits";
  const std::string table =
      Header({"XTENSION= 'BINTABLE'", "BITPIX  = 8", "NAXIS   = 2", "NAXIS1  = 8", "NAXIS2  = 0",
              "PCOUNT  = 2147483647", "GCOUNT  = 1", "TFIELDS = 1", "TFORM1  = 'D'", "EXTNAME = 'rois'"});
  WriteText(path, Primary() + table);
  FitsFileWrite(path, false, "rois");
  const std::vector<char> bytes = testing::Bytes(path);
  EXPECT_NE(std::string(bytes.begin(), bytes.end()).find("CHECKSUM"), std::string::npos);
  testing::ClearMessages();
  testing::ExpectThrows<std::runtime_error>(
      "Fits: Could not create table, details: tried to move past end of file, The file lacks more than 100 MB of the "
      "data "
      "that it declares.",
      [&] {
        WriteTable(FitsFileWrite(path, false, "new"), {{"x", "D"}});
      });
  EXPECT_EQ(testing::Bytes(path).size(), bytes.size());
}

/// What the file lacks is filled up where that is little.
TEST(MissingData, FileThatLacksItsLastBlockIsMadeWhole) {
  const TempDir folder;
  const std::string path = folder / "a.fits";
  WriteText(path, Primary() + TableOfDoubles("1", {"TTYPE1  = 'x'", "EXTNAME = 'rois'"}));
  FitsFileWrite(path, false, "rois").reset();
  EXPECT_EQ(testing::Bytes(path).size(), 3U * 2880);
  const Handle file = FitsFile(path, "rois");
  int data = 0;
  int hdu = 0;
  int status = 0;
  fits_verify_chksum(file->file, &data, &hdu, &status);
  EXPECT_EQ(data, 1);
  EXPECT_EQ(hdu, 1);
}

// --- Behind the opening --------------------------------------------------------------------------------------------

/// Its rows are asked of memory, as the file declares them.
TEST(FitsTable, RowsThatNoMemoryHoldsEndInBadAlloc) {
  const TempDir folder;
  const std::string path = folder / "a.fits";
  WriteText(path, Primary() + TableOfDoubles("1000000", {"TTYPE1  = 'x       '", "EXTNAME = 'rois    '"}));
  const Handle file = FitsFile(path, "rois");
  const testing::ScarceMemory scarce(1'000'000);
  EXPECT_THROW(ReadColumnOrThrow<double>(file, "x"), std::bad_alloc);
}

TEST(FitsTable, RowsThatTheFileDoesNotHaveAreAReadError) {
  const TempDir folder;
  const std::string path = folder / "a.fits";
  WriteText(path, Primary() + TableOfDoubles("10000", {"TTYPE1  = 'x       '", "EXTNAME = 'rois    '"}));
  const Handle file = FitsFile(path, "rois");
  testing::ClearMessages();
  testing::ExpectThrowsWithDetails<std::runtime_error>(
      "Fits: Error reading column \"x\": error reading from FITS file, ",
      [&] { ReadColumnOrThrow<double>(file, "x"); });
}

/// As many bytes as the file has, or more: no element of the column takes one.
TEST(FitsTable, ColumnsOfNoWidthAreRead) {
  const TempDir folder;
  const std::string path = folder / "a.fits";
  WriteText(path, Primary() + Header({"XTENSION= 'BINTABLE'", "BITPIX  = 8", "NAXIS   = 2", "NAXIS1  = 0",
                                      "NAXIS2  = 100000", "PCOUNT  = 0", "GCOUNT  = 1", "TFIELDS = 1", "TFORM1  = '0D'",
                                      "TTYPE1  = 'x'", "EXTNAME = 'rois'"}));
  testing::ClearMessages();
  const Handle file = FitsFile(path, "rois");
  testing::ExpectThrowsWithDetails<std::runtime_error>("Fits: Error reading column \"x\": bad first element number, ",
                                                       [&] { ReadColumnOrThrow<double>(file, "x"); });
}

/// CFITSIO goes on after a header that breaks off, without knowing the columns that it counts.
TEST(FitsTable, HeaderThatBreaksOffIsReportedByEachCall) {
  const TempDir folder;
  const std::string path = folder / "a.fits";
  WriteText(path, Primary() + TableOfDoubles("1", {"TTYPE1  = 'x       '"}).substr(0, 9UL * 80));
  const Handle file = FitsFileWrite(path, false, "rois");
  const double value = 1.0;
  file->hdu_type = BINARY_TBL;
  for (int again = 0; again < 2; ++again) {
    testing::ExpectThrowsWithDetails<std::runtime_error>("Fits: Error writing column 1: ",
                                                         [&] { WriteColumnPriv(file, &value, 1, TDOUBLE, 1, 1); });
    testing::ExpectThrowsWithDetails<std::runtime_error>("Fits: Error getting table params: ",
                                                         [&] { WriteColumnPriv(file, &value, 1, TDOUBLE, "x", 1); });
  }
}

}  // namespace
}  // namespace quen::common::Fits
