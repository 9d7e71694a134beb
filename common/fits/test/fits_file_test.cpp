#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <type_traits>

#include "common/fits/fits.hpp"
#include "common/fits/src/status.hpp"
#include "testing/environment.hpp"
#include "testing/exceptions.hpp"
#include "testing/fits_files.hpp"
#include "testing/second_reader.hpp"

namespace quen::common::Fits {
namespace {

using quen::testing::AppendTable;
using quen::testing::Bytes;
using quen::testing::ClearMessages;
using quen::testing::DescribedByAstropy;
using quen::testing::ExpectThrows;
using quen::testing::ExpectThrowsWithDetails;
using quen::testing::OpenDescriptors;
using quen::testing::TempDir;
using quen::testing::TextOfThrown;
using quen::testing::WriteImage;
using quen::testing::WriteText;

constexpr const char* kNewFile = "0 image '' 8\n";

/// Counted from 1, the primary HDU.
int CurrentHdu(const Handle& handle) {
  int number = 0;
  fits_get_hdu_num(handle->file, &number);
  return number;
}

TEST(CppToFits, FormatsAreTheTableLetters) {
  EXPECT_STREQ(CppToFits<unsigned char>::format, "B");
  EXPECT_STREQ(CppToFits<unsigned short>::format, "U");
  EXPECT_STREQ(CppToFits<double>::format, "D");
  static_assert(std::is_same_v<decltype(CppToFits<double>::format), const char*>);
}

TEST(ReadStatus, ZeroIsEmptyAndLeavesTheQueue) {
  ClearMessages();
  fits_write_errmsg("kept");
  EXPECT_EQ(ReadStatus(0), "");
  EXPECT_EQ(ReadStatus(104), "could not open the named file, kept");
}

TEST(ReadStatus, RunsQueuedMessagesTogetherOldestFirstAndEmptiesTheQueue) {
  ClearMessages();
  fits_write_errmsg("first");
  fits_write_errmsg("second");
  EXPECT_EQ(ReadStatus(104), "could not open the named file, firstsecond");
  EXPECT_EQ(ReadStatus(104), "could not open the named file, ");
}

TEST(ReadStatus, AfterAFailedOpenBeginsWithTheDescription) {
  ClearMessages();
  fitsfile* file = nullptr;
  int status = 0;
  fits_open_file(&file, "/nowhere/at_all.fits", READONLY, &status);
  ASSERT_EQ(status, 104);
  EXPECT_EQ(ReadStatus(status).rfind("could not open the named file, failed to find or open", 0), 0U);
}

TEST(FitsFile, OpensThePrimaryImageReadOnly) {
  const TempDir folder;
  WriteImage(folder / "image.fits", SHORT_IMG, {3, 2}, {1, 2, 3, 4, 5, 6});
  const Handle handle = FitsFile(folder / "image.fits", std::nullopt);
  ASSERT_NE(handle->file, nullptr);
  EXPECT_EQ(handle->hdu_type, 0);
  EXPECT_TRUE(handle->read_only);
  EXPECT_EQ(handle->extension, "");
}

TEST(FitsFile, OpensANamedTableAndKnowsItsType) {
  const TempDir folder;
  AppendTable(folder / "tables.fits", "first", 1, {{"a", "D", {1}}});
  AppendTable(folder / "tables.fits", "second", 1, {{"a", "F10.3", {1}}}, ASCII_TBL);
  const Handle binary = FitsFile(folder / "tables.fits", "first");
  EXPECT_EQ(binary->hdu_type, 2);
  EXPECT_EQ(binary->extension, "first");
  EXPECT_EQ(FitsFile(folder / "tables.fits", "second")->hdu_type, 1);
}

TEST(FitsFile, MissingFileIsNamedWithCfitsiosWords) {
  const TempDir folder;
  const std::string path = folder / "missing.fits";
  ClearMessages();
  ExpectThrows<std::runtime_error>("Fits: Could not open " + path +
                                       ", details: could not open the named file, failed to find or open the "
                                       "following file: (ffopen)" +
                                       path,
                                   [&] { FitsFile(path, std::nullopt); });
}

TEST(FitsFile, MissingFileWithExtensionIsNamedWithoutBrackets) {
  const TempDir folder;
  const std::string path = folder / "missing.fits";
  ExpectThrowsWithDetails<std::runtime_error>(
      "Fits: Could not open " + path + ", details: could not open the named file, ", [&] { FitsFile(path, "rois"); });
}

TEST(FitsFile, MissingExtensionIsNamedWithoutBrackets) {
  const TempDir folder;
  const std::string path = folder / "tables.fits";
  AppendTable(path, "first", 1, {{"a", "D", {1}}});
  ExpectThrowsWithDetails<std::runtime_error>("Fits: Could not open " + path + ", details: ",
                                              [&] { FitsFile(path, "second"); });
}

TEST(FitsFile, EmptyExtensionNameIsStillPutInBrackets) {
  const TempDir folder;
  const std::string path = folder / "missing.fits";
  ClearMessages();
  const std::string text = TextOfThrown<std::runtime_error>([&] { FitsFile(path, ""); });
  EXPECT_EQ(text.substr(text.size() - path.size() - 2), path + "[]");
}

TEST(FitsFile, ReleaseClosesTheFileAndLeavesItsBytes) {
  const TempDir folder;
  const std::string path = folder / "image.fits";
  WriteImage(path, SHORT_IMG, {1}, {7});
  const std::vector<char> before = Bytes(path);
  const std::size_t descriptors = OpenDescriptors();
  {
    const Handle handle = FitsFile(path, std::nullopt);
    EXPECT_EQ(OpenDescriptors(), descriptors + 1);
  }
  EXPECT_EQ(OpenDescriptors(), descriptors);
  EXPECT_EQ(Bytes(path), before);
}

TEST(FitsFile, FailureLeavesNoDescriptor) {
  const TempDir folder;
  AppendTable(folder / "tables.fits", "first", 1, {{"a", "D", {1}}});
  WriteText(folder / "text.fits", "this is no FITS file");
  const std::size_t descriptors = OpenDescriptors();
  EXPECT_THROW(FitsFile(folder / "missing.fits", std::nullopt), std::runtime_error);
  EXPECT_THROW(FitsFile(folder / "tables.fits", "second"), std::runtime_error);
  EXPECT_THROW(FitsFile(folder / "text.fits", std::nullopt), std::runtime_error);
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST(FitsFile, ReleaseDoesNotSumUpDataThatTheFileLacks) {
  // A header that declares 8 · 10¹⁵ bytes: were they summed up, this would not end.
  const TempDir folder;
  const std::string path = folder / "huge.fits";
  WriteImage(path, DOUBLE_IMG, {10, 10}, std::vector<double>(100, 1.0));
  const std::vector<char> bytes = Bytes(path);
  std::string text(bytes.begin(), bytes.end());
  for (const char* const axis : {"NAXIS1  =                   10", "NAXIS2  =                   10"}) {
    const std::size_t place = text.find(axis);
    ASSERT_NE(place, std::string::npos);
    text.replace(place + 10, 20, "            31622776");
  }
  WriteText(path, text);
  const std::size_t descriptors = OpenDescriptors();
  EXPECT_EQ(FitsFile(path, std::nullopt)->hdu_type, 0);
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST(Handle, MovesOwnershipAndReleasesOnce) {
  const TempDir folder;
  WriteImage(folder / "image.fits", SHORT_IMG, {1}, {7});
  const std::size_t descriptors = OpenDescriptors();
  Handle first = FitsFile(folder / "image.fits", std::nullopt);
  Handle second = std::move(first);
  EXPECT_EQ(OpenDescriptors(), descriptors + 1);
  second.reset();
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST(Handle, ReleaseOfAHandleWithoutAFileOnlyFreesIt) {
  const TempDir folder;
  const Handle open = FitsFileWrite(folder / "a.fits", true, std::nullopt);
  open.get_deleter()(nullptr);
  const std::size_t descriptors = OpenDescriptors();
  open.get_deleter()(new HandleType{nullptr, -1, true, "name"});
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST(FitsFileWrite, NewFileHoldsOneEmptyImageWithChecksums) {
  const TempDir folder;
  for (const bool overwrite : {true, false}) {
    const std::string path = folder / (overwrite ? "a.fits" : "b.fits");
    {
      const Handle handle = FitsFileWrite(path, overwrite, "later");
      EXPECT_EQ(handle->hdu_type, -1);
      EXPECT_FALSE(handle->read_only);
      EXPECT_EQ(handle->extension, "later");
    }
    EXPECT_EQ(DescribedByAstropy(path), kNewFile);
    EXPECT_EQ(testing::ComplaintsOfFitsverify(path), "");
  }
}

TEST(FitsFileWrite, OverwriteReplacesAnExistingFile) {
  const TempDir folder;
  AppendTable(folder / "a.fits", "old", 1, {{"a", "D", {1}}});
  FitsFileWrite(folder / "a.fits", true, std::nullopt);
  EXPECT_EQ(DescribedByAstropy(folder / "a.fits"), kNewFile);
}

TEST(FitsFileWrite, MakesMissingParentDirectories) {
  const TempDir folder;
  FitsFileWrite(folder / "x/y/a.fits", false, std::nullopt);
  FitsFileWrite(folder / "u/v/a.fits", true, std::nullopt);
  EXPECT_TRUE(std::filesystem::exists(folder / "x/y/a.fits"));
  EXPECT_TRUE(std::filesystem::exists(folder / "u/v/a.fits"));
}

TEST(FitsFileWrite, BareFileNameNeedsNoParent) {
  const TempDir folder;
  const testing::ScopedCurrentDirectory current(folder.Path());
  FitsFileWrite("a.fits", false, std::nullopt);
  EXPECT_TRUE(std::filesystem::exists(folder / "a.fits"));
}

TEST(FitsFileWrite, ParentThatIsAFileIsTheStandardLibrarysError) {
  const TempDir folder;
  WriteText(folder / "file", "");
  EXPECT_NE(TextOfThrown<std::filesystem::filesystem_error>([&] { FitsFileWrite(folder / "file/a.fits", false, {}); }),
            "");
}

TEST(FitsFileWrite, WithoutOverwriteOpensAnExistingFileAndKeepsIt) {
  const TempDir folder;
  const std::string path = folder / "a.fits";
  AppendTable(path, "old", 2, {{"a", "D", {1, 2}}});
  const Handle handle = FitsFileWrite(path, false, std::nullopt);
  EXPECT_EQ(handle->hdu_type, -1);
  EXPECT_FALSE(handle->read_only);
  int hdus = 0;
  int status = 0;
  fits_get_num_hdus(handle->file, &hdus, &status);
  EXPECT_EQ(hdus, 2);
  EXPECT_EQ(CurrentHdu(handle), 1);
}

TEST(FitsFileWrite, WithoutOverwriteMovesToAnExistingTable) {
  const TempDir folder;
  const std::string path = folder / "a.fits";
  AppendTable(path, "first", 1, {{"a", "D", {1}}});
  AppendTable(path, "second", 1, {{"a", "D", {1}}});
  const Handle handle = FitsFileWrite(path, false, "second");
  EXPECT_EQ(handle->hdu_type, 2);
  EXPECT_EQ(CurrentHdu(handle), 3);
}

TEST(FitsFileWrite, MissingExtensionIsNoFailure) {
  const TempDir folder;
  const std::string path = folder / "a.fits";
  AppendTable(path, "first", 1, {{"a", "D", {1}}});
  const Handle handle = FitsFileWrite(path, false, "second");
  EXPECT_EQ(handle->hdu_type, -1);
  EXPECT_EQ(handle->extension, "second");
  EXPECT_EQ(CurrentHdu(handle), 1);
}

TEST(FitsFileWrite, AsciiTableOfTheNameIsNotTaken) {
  const TempDir folder;
  const std::string path = folder / "a.fits";
  AppendTable(path, "first", 1, {{"a", "F10.3", {1}}}, ASCII_TBL);
  EXPECT_EQ(FitsFileWrite(path, false, "first")->hdu_type, -1);
}

TEST(FitsFileWrite, ExistingFileThatIsNoFitsFileIsKeptAndReported) {
  const TempDir folder;
  const std::string path = folder / "text.fits";
  WriteText(path, "this is no FITS file");
  const std::size_t descriptors = OpenDescriptors();
  ExpectThrowsWithDetails<std::runtime_error>("Fits: Could not open/create " + path + ", details: ",
                                              [&] { FitsFileWrite(path, false, std::nullopt); });
  EXPECT_EQ(OpenDescriptors(), descriptors);
  const std::vector<char> bytes = Bytes(path);
  EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "this is no FITS file");
}

TEST(FitsFileWrite, FailureTellsAlsoWhyTheOpenFailed) {
  const TempDir folder;
  const std::string path = folder / "text.fits";
  WriteText(path, "this is no FITS file");
  ClearMessages();
  const std::string text = TextOfThrown<std::runtime_error>([&] { FitsFileWrite(path, false, std::nullopt); });
  EXPECT_NE(text.find("details: couldn't create the named file, "), std::string::npos) << text;
  EXPECT_NE(text.find("ffopen could not interpret primary array header of file: "), std::string::npos) << text;
}

TEST(FitsFileWrite, FolderOfThatNameIsReported) {
  const TempDir folder;
  WriteText(folder / "inside", "CFITSIO would replace an empty folder");
  const std::size_t descriptors = OpenDescriptors();
  for (const bool overwrite : {true, false}) {
    ExpectThrowsWithDetails<std::runtime_error>("Fits: Could not open/create " + folder.Path() + ", details: ",
                                                [&] { FitsFileWrite(folder.Path(), overwrite, std::nullopt); });
  }
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST(FitsFileWrite, ReleaseRefreshesTheChecksumsOfTheCurrentHdu) {
  const TempDir folder;
  const std::string path = folder / "a.fits";
  {
    const Handle handle = FitsFileWrite(path, true, "table");
    WriteTable(handle, {{"a", "D"}});
    const double value = 2.5;
    WriteColumnPriv(handle, &value, 1, TDOUBLE, 1, 1);
  }
  EXPECT_EQ(DescribedByAstropy(path), std::string(kNewFile) + "1 table 'table' 1 a:D\n");
}

}  // namespace
}  // namespace quen::common::Fits
