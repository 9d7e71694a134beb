#include "common/fits/src/header_check.hpp"

#include <fitsio.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "common/fits/fits.hpp"
#include "common/fits/src/status.hpp"
#include "testing/environment.hpp"
#include "testing/exceptions.hpp"
#include "testing/fits_files.hpp"

namespace {

using quen::common::Fits::CheckHeaders;
using quen::common::Fits::FitsFile;
using quen::common::Fits::FitsFileWrite;
using quen::common::Fits::ReadStatus;
using quen::testing::TempDir;
using quen::testing::WriteText;

/// Cards of 80 characters, an END, and blanks up to a whole block.
std::string Header(const std::vector<std::string>& cards) {
  std::string text;
  for (std::string card : cards) {
    card.resize(80, ' ');
    text += card;
  }
  text += "END";
  text.resize((text.size() + 2879) / 2880 * 2880, ' ');
  return text;
}

std::string Primary(const std::vector<std::string>& more = {}) {
  std::vector<std::string> cards = {"SIMPLE  =                    T", "BITPIX  =                    8",
                                    "NAXIS   =                    0"};
  cards.insert(cards.end(), more.begin(), more.end());
  return Header(cards);
}

std::string Table(const std::string& rows, const std::vector<std::string>& more = {}) {
  std::vector<std::string> cards = {"XTENSION= 'BINTABLE'",
                                    "BITPIX  =                    8",
                                    "NAXIS   =                    2",
                                    "NAXIS1  =                    8",
                                    "NAXIS2  = " + rows,
                                    "PCOUNT  =                    0",
                                    "GCOUNT  =                    1",
                                    "TFIELDS =                    1",
                                    "TFORM1  = 'D       '"};
  cards.insert(cards.end(), more.begin(), more.end());
  return Header(cards);
}

/// What the check says of a file with this content, as "status: messages"; empty for nothing.
std::string Verdict(const std::string& content, int mode = READONLY) {
  const TempDir folder;
  WriteText(folder / "a.fits", content);
  quen::testing::ClearMessages();
  const int status = CheckHeaders(folder / "a.fits", mode);
  const std::string text = ReadStatus(status);
  return status == 0 ? "" : std::to_string(status) + ": " + text.substr(text.find(", ") + 2);
}

TEST(HeaderCheck, GoodFilesPass) {
  EXPECT_EQ(Verdict(Primary()), "");
  EXPECT_EQ(Verdict(Primary() + Table("1") + std::string(2880, '\0')), "");
  EXPECT_EQ(Verdict(Primary() + Table("1") + std::string(2880, '\0'), READWRITE), "");
}

TEST(HeaderCheck, OtherFilesAreNotItsBusiness) {
  EXPECT_EQ(Verdict(""), "");
  EXPECT_EQ(Verdict("SIMPLE"), "");
  EXPECT_EQ(Verdict("text"), "");
  EXPECT_EQ(Verdict(Header({"XTENSION= 'IMAGE'", "NAXIS1  = -1"})), "");
  EXPECT_EQ(CheckHeaders("/no/such/file.fits", READONLY), 0);
  EXPECT_EQ(CheckHeaders(std::string(3000, 'x'), READONLY), 0);
  EXPECT_EQ(CheckHeaders(std::filesystem::temp_directory_path().string(), READONLY), 0);
  const TempDir folder;
  ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(CheckHeaders(folder / "pipe", READONLY), 0);  // and does not wait for its other end
}

TEST(HeaderCheck, ExtendedSyntaxIsLookedThrough) {
  const TempDir folder;
  WriteText(folder / "a.fits", Primary({"NAXIS1  = -1"}));
  const std::string path = folder / "a.fits";
  const std::string long_filter = "[rois][" + std::string(2000, ' ') + "x > 1]";
  for (const std::string& name : {path, path + "[1]", path + long_filter, path + "+1", "file://" + path}) {
    quen::testing::ClearMessages();
    EXPECT_EQ(CheckHeaders(name, READONLY), BAD_NAXES) << name;
  }
}

TEST(HeaderCheck, SizesOutOfRangeAreRefusedByName) {
  for (const std::string keyword : {"NAXIS1", "NAXIS999", "PCOUNT", "GCOUNT", "THEAP", "ZNAXIS1", "ZTILE2"}) {
    std::string card = keyword;
    card.resize(8, ' ');
    card += "= ";
    const std::string refusal = "213: " + keyword + " in the header is negative or too large.";
    EXPECT_EQ(Verdict(Primary({card + "-1"})), refusal);
    EXPECT_EQ(Verdict(Primary({card + "1000000000000000256"})), refusal);
    EXPECT_EQ(Verdict(Primary({card + "NaN"})), refusal);
    EXPECT_EQ(Verdict(Primary({card.substr(0, 9) + "-1"})), refusal);
    EXPECT_EQ(Verdict(Primary({card + "0"})), "");
    EXPECT_EQ(Verdict(Primary({card + "1000000000000000000"})), "");
  }
  EXPECT_EQ(Verdict(Primary({"OBJECT  = -1", "NAXIS   = -1"})), "");  // CFITSIO refuses the axes itself
}

TEST(HeaderCheck, ValuesLongerThanATextAreRefused) {
  const std::string digits(70, '7');
  EXPECT_EQ(Verdict(Primary({"TTYPE1  = " + digits})), "205: TTYPE1 in the header has too long a value.");
  EXPECT_EQ(Verdict(Primary({"TTYPE1  = (" + digits.substr(2) + ")"})),
            "205: TTYPE1 in the header has too long a value.");
  EXPECT_EQ(Verdict(Primary({"TTYPE1  = (" + digits.substr(35) + " " + digits.substr(36) + ")"})),
            "205: TTYPE1 in the header has too long a value.");
  EXPECT_EQ(Verdict(Primary({"TTYPE1  = " + digits.substr(2) + " /"})), "");
  EXPECT_EQ(Verdict(Primary({"TTYPE1  = " + digits.substr(2) + "/"})), "");
  EXPECT_EQ(Verdict(Primary({"TTYPE1  = '" + digits.substr(2) + "'"})), "");
  EXPECT_EQ(Verdict(Primary({"TNULL1  = 7 / " + digits})), "");
  EXPECT_EQ(Verdict(Primary({"OBJECT  = " + digits})), "");
}

TEST(HeaderCheck, RepeatCountsThatOverflowAreRefused) {
  EXPECT_EQ(Verdict(Primary({"TFORM1  = '1234567890123456D'"})),
            "261: TFORM1 in the header has too large a repeat count.");
  EXPECT_EQ(Verdict(Primary({"TFORM1  = '123456789012345D'"})), "");
  EXPECT_EQ(Verdict(Primary({"TFORM1  = 'D'"})), "");
}

TEST(HeaderCheck, DataThatNoFileCanHoldAreRefused) {
  const std::string refusal = "213: NAXIS in the header declares too much data.";
  EXPECT_EQ(Verdict(Primary() + Table("1000000000000000")), "");
  EXPECT_EQ(Verdict(Primary() + Table("1000000000000000000")), refusal);
  const std::vector<std::string> cube = {"NAXIS1  = 1000000000", "NAXIS2  = 1000000000", "NAXIS3  = 2"};
  EXPECT_EQ(Verdict(Header({"SIMPLE  = T", "BITPIX  = -64", "NAXIS   = 3", cube[0], cube[1], cube[2]})), refusal);
  EXPECT_EQ(Verdict(Header({"SIMPLE  = T", "BITPIX  = -64", "NAXIS   = 0", cube[0], cube[1], cube[2]})), "");
  EXPECT_EQ(Verdict(Header({"SIMPLE  = T", "BITPIX  = 8", "NAXIS   = 1", "NAXIS1  = 0", "PCOUNT  = 1000000000",
                            "GCOUNT  = 1000000001"})),
            refusal);
}

TEST(HeaderCheck, WhatAHeaderDoesNotSayIsNotCounted) {
  const std::string huge = "1000000000000000000";
  EXPECT_EQ(Verdict(Header({"SIMPLE  = T", "NAXIS   = 2", "NAXIS1  = " + huge, "NAXIS2  = " + huge})), "");
  EXPECT_EQ(Verdict(Header({"SIMPLE  = T", "BITPIX  = 8", "NAXIS1  = " + huge, "NAXIS2  = " + huge})), "");
  // One group, unless it says otherwise: 96 MB.
  EXPECT_EQ(Verdict(Header({"SIMPLE  = T", "BITPIX  = 8", "NAXIS   = 1", "NAXIS1  = 96000000"}), READWRITE), "");
}

TEST(HeaderCheck, RandomGroupsHaveNoFirstAxis) {
  EXPECT_EQ(Verdict(Header({"SIMPLE  = T", "BITPIX  = 32", "NAXIS   = 2", "NAXIS1  = 0",
                            "NAXIS2  = 1000000000000000000", "GROUPS  = T"})),
            "213: NAXIS in the header declares too much data.");
}

TEST(HeaderCheck, FileToBeWrittenToMayLackLittleOfItsData) {
  EXPECT_EQ(Verdict(Primary() + Table("12000000"), READWRITE), "");  // 96 MB
  EXPECT_EQ(Verdict(Primary() + Table("13000000"), READWRITE), "213: NAXIS in the header declares too much data.");
  EXPECT_EQ(Verdict(Primary() + Table("13000000"), READONLY), "");
}

TEST(HeaderCheck, HeadersBehindDataAndHeadersWithoutEndAreLookedThrough) {
  const std::string refusal = "213: PCOUNT in the header is negative or too large.";
  const std::string data(2UL * 2880, '\0');
  std::string card = "PCOUNT  = -1";
  card.resize(80, ' ');
  EXPECT_EQ(Verdict(Primary() + Table("361") + data + Table("1", {card})), refusal);  // 361 · 8 bytes: two blocks
  EXPECT_EQ(Verdict(Primary() + Table("361") + data + card), refusal);
  EXPECT_EQ(Verdict(Primary() + card.substr(0, 79)), "");
  // Data are not taken for cards.
  const std::string text_as_data = card + std::string(2UL * 2880 - card.size(), ' ');
  EXPECT_EQ(Verdict(Primary() + Table("361") + text_as_data + Table("1")), "");
  std::vector<std::string> many(40, "COMMENT");
  many.push_back(card);
  EXPECT_EQ(Verdict(Primary(many)), refusal);
}

TEST(HeaderCheck, RefusalIsAFailureToOpen) {
  const TempDir folder;
  const std::string path = folder / "a.fits";
  WriteText(path, Primary({"NAXIS1  = -1"}));
  quen::testing::ClearMessages();
  quen::testing::ExpectThrows<std::runtime_error>(
      "Fits: Could not open " + path +
          ", details: illegal NAXISn keyword value, NAXIS1 in the header is negative or too large.",
      [&] { FitsFile(path, std::nullopt); });
  const std::vector<char> before = quen::testing::Bytes(path);
  quen::testing::ExpectThrowsWithDetails<std::runtime_error>("Fits: Could not open/create " + path + ", details: ",
                                                             [&] { FitsFileWrite(path, false, "t"); });
  EXPECT_EQ(quen::testing::Bytes(path), before);
}

// --- Behind the opening --------------------------------------------------------------------------------------------

/// The table's rows take eight bytes each, of which the file has none.
TEST(FitsTable, RowsThatTheFileCannotHoldTakeNoMemory) {
  const TempDir folder;
  const std::string path = folder / "a.fits";
  WriteText(path, Primary() + Table("100000000000", {"TTYPE1  = 'x       '", "EXTNAME = 'rois    '"}));
  const quen::common::Fits::Handle file = FitsFile(path, "rois");
  quen::testing::ClearMessages();
  quen::testing::ExpectThrows<std::runtime_error>("Fits: Error reading column \"x\": tried to move past end of file, ",
                                                  [&] { quen::common::Fits::ReadColumnOrThrow<double>(file, "x"); });
}

/// CFITSIO would divide by the width of the column's elements.
TEST(FitsTable, ColumnsOfNoWidthAreNotWritten) {
  const TempDir folder;
  const std::string path = folder / "a.fits";
  WriteText(path, Primary() +
                      Header({"XTENSION= 'BINTABLE'", "BITPIX  = 8", "NAXIS   = 2", "NAXIS1  = 8", "NAXIS2  = 1",
                              "PCOUNT  = 0", "GCOUNT  = 1", "TFIELDS = 3", "TFORM1  = '0A'", "TFORM2  = 'D'",
                              "TFORM3  = '0A'", "EXTNAME = 'rois'"}) +
                      std::string(2880, '\0'));
  const quen::common::Fits::Handle file = FitsFileWrite(path, false, "rois");
  const double value = 1.0;
  for (const int column : {1, 3}) {
    quen::testing::ClearMessages();
    quen::testing::ExpectThrowsWithDetails<std::runtime_error>(
        "Fits: Error writing column " + std::to_string(column) + ": " + "illegal TFORM format code",
        [&] { quen::common::Fits::WriteColumnPriv(file, &value, 1, TDOUBLE, column, 1); });
  }
  EXPECT_EQ(quen::common::Fits::WriteColumnPriv(file, &value, 1, TDOUBLE, 2, 1), 1U);
  for (const int column : {0, 4}) {
    quen::testing::ClearMessages();
    quen::testing::ExpectThrowsWithDetails<std::runtime_error>(
        "Fits: Error writing column " + std::to_string(column) + ": column number < 1 or > tfields",
        [&] { quen::common::Fits::WriteColumnPriv(file, &value, 1, TDOUBLE, column, 1); });
  }
}

/// CFITSIO goes on after a header that breaks off, without knowing the columns that it counts.
TEST(FitsTable, HeaderThatBreaksOffIsReportedByEachCall) {
  const TempDir folder;
  const std::string path = folder / "a.fits";
  WriteText(path, Primary() + Table("1", {"TTYPE1  = 'x       '"}).substr(0, 9UL * 80));
  const quen::common::Fits::Handle file = FitsFileWrite(path, false, "rois");
  const double value = 1.0;
  file->hdu_type = BINARY_TBL;
  for (int again = 0; again < 2; ++again) {
    quen::testing::ExpectThrowsWithDetails<std::runtime_error>(
        "Fits: Error writing column 1: ", [&] { quen::common::Fits::WriteColumnPriv(file, &value, 1, TDOUBLE, 1, 1); });
    quen::testing::ExpectThrowsWithDetails<std::runtime_error>("Fits: Error getting table params: ", [&] {
      quen::common::Fits::WriteColumnPriv(file, &value, 1, TDOUBLE, "x", 1);
    });
  }
}

}  // namespace
