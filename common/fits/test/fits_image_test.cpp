#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <numeric>

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
using quen::testing::ExpectThrows;
using quen::testing::ExpectThrowsWithDetails;
using quen::testing::kSentinel;
using quen::testing::OpenDescriptors;
using quen::testing::Ramp;
using quen::testing::TempDir;
using quen::testing::WriteImage;
using Dims = std::vector<std::size_t>;

constexpr const char* kNotAnImage = "Fits: Handle opened for an exttension HDU";

/// A file with one image whose pixels are 1, 2, 3, …
class ImageFile {
 public:
  ImageFile(int bitpix, const std::vector<long>& dims) {
    long count = dims.empty() ? 0 : 1;
    for (const long length : dims) count *= length;
    WriteImage(path_, bitpix, dims, Ramp(static_cast<std::size_t>(count)));
  }
  [[nodiscard]] Handle Open() const { return FitsFile(path_, std::nullopt); }
  [[nodiscard]] const std::string& Path() const { return path_; }

 private:
  TempDir folder_;
  std::string path_ = folder_ / "image.fits";
};

/// An image whose data is cut off in the file.
std::string TruncatedImage(const TempDir& folder, const std::vector<long>& dims) {
  std::string path = folder / "cut.fits";
  long count = 1;
  for (const long length : dims) count *= length;
  WriteImage(path, DOUBLE_IMG, dims, Ramp(static_cast<std::size_t>(count)));
  std::filesystem::resize_file(path, 2880);
  return path;
}

TEST(ReadImgParams, GivesAxesFastestFirstAndBitpix) {
  EXPECT_EQ(ReadImgParams(ImageFile(DOUBLE_IMG, {5, 4, 3}).Open()), std::make_pair(Dims{5, 4, 3}, -64));
  EXPECT_EQ(ReadImgParams(ImageFile(SHORT_IMG, {7}).Open()), std::make_pair(Dims{7}, 16));
  EXPECT_EQ(ReadImgParams(ImageFile(BYTE_IMG, {}).Open()), std::make_pair(Dims{}, 8));
}

TEST(ReadImgParams, RefusesTablesAndUnknownHdus) {
  const TempDir folder;
  AppendTable(folder / "t.fits", "t", 1, {{"a", "D", {1}}});
  const Handle table = FitsFile(folder / "t.fits", "t");
  ExpectThrows<std::runtime_error>(kNotAnImage, [&] { ReadImgParams(table); });
  const Handle fresh = FitsFileWrite(folder / "new.fits", true, std::nullopt);
  ExpectThrows<std::runtime_error>(kNotAnImage, [&] { ReadImgParams(fresh); });
}

TEST(ReadImgParams, CfitsioFailureIsReported) {
  // A handle that claims to stand on an image while it stands on a table: CFITSIO refuses the query.
  const TempDir folder;
  AppendTable(folder / "t.fits", "t", 1, {{"a", "D", {1}}});
  const Handle table = FitsFile(folder / "t.fits", "t");
  fitsfile* const file = table->file;
  const int good = file->HDUposition;
  table->hdu_type = 0;
  file->HDUposition = 41;  // an HDU that the file does not have
  ExpectThrowsWithDetails<std::runtime_error>("Fits: Error getting the number of axes: ",
                                              [&] { ReadImgParams(table); });
  file->HDUposition = good;
}

TEST(ReadImgPriv, ReadsAMatrixInFileOrder) {
  const ImageFile file(DOUBLE_IMG, {52, 1214});
  std::vector<double> buffer(63128);
  ReadImgPriv(file.Open(), buffer.data(), buffer.size(), -64, 82, Dims{52, 1214});
  EXPECT_EQ(buffer, Ramp(63128));
}

TEST(ReadImgPriv, DimsMayBeLeftOut) {
  const ImageFile file(DOUBLE_IMG, {3, 2});
  std::vector<double> buffer(6);
  ReadImgPriv(file.Open(), buffer.data(), buffer.size(), -64, 82, std::nullopt);
  EXPECT_EQ(buffer, Ramp(6));
}

TEST(ReadImgPriv, CfitsioConvertsToTheBuffersType) {
  const ImageFile file(DOUBLE_IMG, {3});
  std::vector<std::int16_t> buffer(3);
  ReadImgPriv(file.Open(), buffer.data(), buffer.size(), -64, 21, Dims{3});
  EXPECT_EQ(buffer, (std::vector<std::int16_t>{1, 2, 3}));
}

TEST(ReadImgPriv, SwappedAxesNameTheFirstThatDiffers) {
  const ImageFile file(DOUBLE_IMG, {52, 1214});
  const Handle handle = file.Open();
  std::vector<double> buffer(63128, kSentinel);
  ExpectThrows<std::runtime_error>("Fits: Image size does not match for the 0th dimension, expected: 1214, acctual: 52",
                                   [&] {
                                     ReadImgPriv(handle, buffer.data(), buffer.size(), -64, 82, Dims{1214, 52});
                                   });
  ExpectThrows<std::runtime_error>(
      "Fits: Image size does not match for the 1th dimension, expected: 1213, acctual: 1214", [&] {
        ReadImgPriv(handle, buffer.data(), buffer.size(), -64, 82, Dims{52, 1213});
      });
  EXPECT_EQ(buffer, std::vector<double>(63128, kSentinel));
}

TEST(ReadImgPriv, OtherNumberOfAxesIsReported) {
  const ImageFile file(DOUBLE_IMG, {52, 1214});
  std::vector<double> buffer(63128);
  ExpectThrows<std::runtime_error>("Fits: Image dimansions do not match, expected: 3 dimensions, actual: 2 dimensions",
                                   [&] {
                                     ReadImgPriv(file.Open(), buffer.data(), buffer.size(), -64, 82, Dims{52, 1214, 1});
                                   });
}

TEST(ReadImgPriv, ShortBufferComesBeforeTheDimensions) {
  const ImageFile file(DOUBLE_IMG, {3, 2});
  std::vector<double> buffer(6, kSentinel);
  ExpectThrows<std::invalid_argument>("Fits: Provided buffer is too small, expected at least: 6 , acctual: 5", [&] {
    ReadImgPriv(file.Open(), buffer.data(), 5, -64, 82, Dims{2, 3, 1});
  });
  EXPECT_EQ(buffer, std::vector<double>(6, kSentinel));
}

TEST(ReadImgPriv, LargerBufferKeepsItsTail) {
  const ImageFile file(DOUBLE_IMG, {3, 2});
  std::vector<double> buffer(8, kSentinel);
  ReadImgPriv(file.Open(), buffer.data(), buffer.size(), -64, 82, Dims{3, 2});
  EXPECT_EQ(buffer, (std::vector<double>{1, 2, 3, 4, 5, 6, kSentinel, kSentinel}));
}

TEST(ReadImgPriv, OtherBitpixComesBeforeTheBuffer) {
  const ImageFile file(SHORT_IMG, {3, 2});
  double pixel = kSentinel;
  ExpectThrows<std::invalid_argument>("Fits: File has wrong image type, expected: -64 , acctual: 16",
                                      [&] { ReadImgPriv(file.Open(), &pixel, 1, -64, 82, Dims{9}); });
  EXPECT_EQ(pixel, kSentinel);
}

TEST(ReadImgPriv, ImageWithoutAxesCountsAsOneElement) {
  const ImageFile file(BYTE_IMG, {});
  double pixel = kSentinel;
  ExpectThrows<std::invalid_argument>("Fits: Provided buffer is too small, expected at least: 1 , acctual: 0",
                                      [&] { ReadImgPriv(file.Open(), &pixel, 0, 8, 82, Dims{}); });
  ExpectThrowsWithDetails<std::runtime_error>("Fits: Error reading image: ",
                                              [&] { ReadImgPriv(file.Open(), &pixel, 1, 8, 82, Dims{}); });
}

TEST(ReadImgPriv, RefusesTables) {
  const TempDir folder;
  AppendTable(folder / "t.fits", "t", 1, {{"a", "D", {1}}});
  double pixel = 0;
  ExpectThrows<std::runtime_error>(kNotAnImage,
                                   [&] { ReadImgPriv(FitsFile(folder / "t.fits", "t"), &pixel, 1, -64, 82, {}); });
}

TEST(ReadImgPriv, TruncatedDataIsReportedAndLeavesNoDescriptor) {
  const TempDir folder;
  const std::string path = TruncatedImage(folder, {1000});
  std::vector<double> buffer(1000);
  const std::size_t descriptors = OpenDescriptors();
  ClearMessages();
  ExpectThrowsWithDetails<std::runtime_error>("Fits: Error reading image: tried to move past end of file, ", [&] {
    ReadImgPriv(FitsFile(path, std::nullopt), buffer.data(), buffer.size(), -64, 82, Dims{1000});
  });
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST(ReadImgSlicePriv, ReadsOnePlane) {
  const ImageFile file(DOUBLE_IMG, {3, 2, 4});
  std::vector<double> plane(7, kSentinel);
  for (std::size_t slice = 0; slice < 4; ++slice) {
    ReadImgSlicePriv(file.Open(), plane.data(), plane.size(), -64, 82, slice);
    std::vector<double> expected(6);
    std::iota(expected.begin(), expected.end(), 1.0 + 6.0 * static_cast<double>(slice));
    expected.push_back(kSentinel);
    EXPECT_EQ(plane, expected) << "slice " << slice;
  }
}

TEST(ReadImgSlicePriv, NotThreeAxesComesBeforeBitpix) {
  double pixel = 0;
  ExpectThrows<std::invalid_argument>("Fits: Expected a 3D image", [&] {
    ReadImgSlicePriv(ImageFile(SHORT_IMG, {3, 2}).Open(), &pixel, 1, -64, 82, 0);
  });
  ExpectThrows<std::invalid_argument>("Fits: Expected a 3D image", [&] {
    ReadImgSlicePriv(ImageFile(SHORT_IMG, {3, 2, 1, 1}).Open(), &pixel, 1, -64, 82, 0);
  });
}

TEST(ReadImgSlicePriv, BitpixComesBeforeThePlane) {
  double pixel = 0;
  ExpectThrows<std::invalid_argument>("Fits: File has wrong image type, expected: -64 , acctual: 16", [&] {
    ReadImgSlicePriv(ImageFile(SHORT_IMG, {3, 2, 4}).Open(), &pixel, 1, -64, 82, 4);
  });
}

TEST(ReadImgSlicePriv, PlaneBeyondTheLastComesBeforeTheBuffer) {
  const ImageFile file(DOUBLE_IMG, {3, 2, 4});
  double pixel = 0;
  for (const std::size_t slice : {std::size_t{4}, std::numeric_limits<std::size_t>::max()}) {
    ExpectThrows<std::out_of_range>("Fits: Slice index is outside the third dimension",
                                    [&] { ReadImgSlicePriv(file.Open(), &pixel, 1, -64, 82, slice); });
  }
}

TEST(ReadImgSlicePriv, ShortBufferIsReported) {
  const ImageFile file(DOUBLE_IMG, {3, 2, 4});
  std::vector<double> plane(6, kSentinel);
  ExpectThrows<std::invalid_argument>("Fits: Provided buffer is too small, expected at least: 6 , acctual: 5",
                                      [&] { ReadImgSlicePriv(file.Open(), plane.data(), 5, -64, 82, 0); });
  EXPECT_EQ(plane, std::vector<double>(6, kSentinel));
}

TEST(ReadImgSlicePriv, RefusesTables) {
  const TempDir folder;
  AppendTable(folder / "t.fits", "t", 1, {{"a", "D", {1}}});
  double pixel = 0;
  ExpectThrows<std::runtime_error>(kNotAnImage,
                                   [&] { ReadImgSlicePriv(FitsFile(folder / "t.fits", "t"), &pixel, 1, -64, 82, 0); });
}

TEST(ReadImgSlicePriv, TruncatedDataIsReported) {
  const TempDir folder;
  const std::string path = TruncatedImage(folder, {100, 10, 2});
  std::vector<double> plane(1000);
  ExpectThrowsWithDetails<std::runtime_error>("Fits: Error reading image slice: ", [&] {
    ReadImgSlicePriv(FitsFile(path, std::nullopt), plane.data(), plane.size(), -64, 82, 1);
  });
}

TEST(WriteImgPriv, WritesThePrimaryImageWhereverTheFileWasOpened) {
  const TempDir folder;
  const std::string path = folder / "a.fits";
  testing::AppendTable(path, "rois", 1, {{"x", "D", {7}}});
  const std::vector<double> values = {1, 2, 3};
  WriteImgPriv(FitsFileWrite(path + "[1]", false, std::nullopt), values.data(), 3, DOUBLE_IMG, TDOUBLE, {3});
  EXPECT_EQ(testing::ImageReadByAstropy(path), values);
  EXPECT_EQ(testing::ColumnReadByAstropy(path, "rois", "x"), std::vector<double>{7});
}

TEST(WriteImgPriv, WritesThePrimaryImageWithChecksums) {
  const TempDir folder;
  const std::string path = folder / "frame.fits";
  std::vector<std::uint16_t> frame(685440);
  std::iota(frame.begin(), frame.end(), std::uint16_t{0});
  {
    const Handle handle = FitsFileWrite(path, true, std::nullopt);
    WriteImgPriv(handle, frame.data(), frame.size(), 16, 21, {840, 816});
    EXPECT_EQ(handle->hdu_type, 0);
  }
  EXPECT_EQ(testing::DescribedByAstropy(path), "0 image '' 16 840x816\n");
  EXPECT_EQ(testing::ComplaintsOfFitsverify(path), "");
  const std::vector<double> pixels = testing::ImageReadByAstropy(path);
  ASSERT_EQ(pixels.size(), frame.size());
  for (std::size_t i = 0; i < frame.size(); ++i) {
    ASSERT_EQ(pixels[i], static_cast<double>(static_cast<std::int16_t>(frame[i]))) << i;
  }
}

TEST(WriteImgPriv, RoundTripsDoubles) {
  const TempDir folder;
  const std::string path = folder / "matrix.fits";
  const std::vector<double> matrix = Ramp(12);
  WriteImgPriv(FitsFileWrite(path, true, std::nullopt), matrix.data(), matrix.size(), -64, 82, {4, 3});
  std::vector<double> buffer(12);
  ReadImgPriv(FitsFile(path, std::nullopt), buffer.data(), buffer.size(), -64, 82, Dims{4, 3});
  EXPECT_EQ(buffer, matrix);
}

TEST(WriteImgPriv, ReplacesThePrimaryImageOfAnExistingFile) {
  const TempDir folder;
  const std::string path = folder / "a.fits";
  WriteImage(path, SHORT_IMG, {3, 2}, Ramp(6));
  AppendTable(path, "t", 1, {{"a", "D", {1}}});
  const std::vector<double> matrix = Ramp(4);
  WriteImgPriv(FitsFileWrite(path, false, std::nullopt), matrix.data(), matrix.size(), -64, 82, {2, 2});
  const Handle handle = FitsFile(path, std::nullopt);
  EXPECT_EQ(ReadImgParams(handle), std::make_pair(Dims{2, 2}, -64));
}

TEST(WriteImgPriv, BufferSizeComesFirst) {
  const TempDir folder;
  const ImageFile file(SHORT_IMG, {2});
  const Handle reading = file.Open();
  const std::vector<std::uint16_t> frame(685441);
  ExpectThrows<std::invalid_argument>(
      "Fits: Provided image buffer size: 685441 does not match size from provided dimensions: 685440", [&] {
        WriteImgPriv(reading, frame.data(), 685441, 16, 21, {840, 816});
      });
  ExpectThrows<std::invalid_argument>(
      "Fits: Provided image buffer size: 685439 does not match size from provided dimensions: 685440", [&] {
        WriteImgPriv(reading, frame.data(), 685439, 16, 21, {840, 816});
      });
  ExpectThrows<std::invalid_argument>(
      "Fits: Provided image buffer size: 2 does not match size from provided dimensions: 1",
      [&] { WriteImgPriv(reading, frame.data(), 2, 16, 21, {}); });
}

TEST(WriteImgPriv, RefusesAReadOnlyHandleBeforeItsExtension) {
  const TempDir folder;
  AppendTable(folder / "t.fits", "t", 1, {{"a", "D", {1}}});
  const std::uint16_t pixel = 1;
  ExpectThrows<std::runtime_error>("Fits: Handle opened for reading only",
                                   [&] { WriteImgPriv(FitsFile(folder / "t.fits", "t"), &pixel, 1, 16, 21, {1}); });
}

TEST(WriteImgPriv, RefusesAHandleOfAnExtension) {
  const TempDir folder;
  const Handle handle = FitsFileWrite(folder / "a.fits", true, "t");
  const std::uint16_t pixel = 1;
  ExpectThrows<std::runtime_error>("Fits: Handle opened for extension table HDU",
                                   [&] { WriteImgPriv(handle, &pixel, 1, 16, 21, {1}); });
  EXPECT_EQ(handle->hdu_type, -1);
}

TEST(WriteImgPriv, CfitsioFailureIsReportedAndTheTypeStaysSet) {
  const TempDir folder;
  const Handle handle = FitsFileWrite(folder / "a.fits", true, std::nullopt);
  const std::uint16_t pixel = 1;
  ExpectThrowsWithDetails<std::runtime_error>("Fits: Error writing image: ",
                                              [&] { WriteImgPriv(handle, &pixel, 1, 17, 21, {1}); });
  EXPECT_EQ(handle->hdu_type, 0);
}

TEST(ReadImgHeaderPriv, ReadsAKeyword) {
  const ImageFile file(SHORT_IMG, {3, 2});
  int naxis2 = 0;
  ReadImgHeaderPriv(file.Open(), &naxis2, TINT, "NAXIS2");
  EXPECT_EQ(naxis2, 2);
}

TEST(ReadImgHeaderPriv, MissingKeywordIsNamedWithoutCfitsiosWords) {
  const ImageFile file(SHORT_IMG, {3, 2});
  int value = 0;
  ExpectThrows<std::runtime_error>("Fits: Error getting the header key: NOSUCH",
                                   [&] { ReadImgHeaderPriv(file.Open(), &value, TINT, "NOSUCH"); });
}

TEST(ReadImgHeaderPriv, RefusesTablesAndUnknownHdus) {
  const TempDir folder;
  AppendTable(folder / "t.fits", "t", 1, {{"a", "D", {1}}});
  int value = 0;
  ExpectThrows<std::runtime_error>(kNotAnImage,
                                   [&] { ReadImgHeaderPriv(FitsFile(folder / "t.fits", "t"), &value, TINT, "NAXIS"); });
  const Handle fresh = FitsFileWrite(folder / "new.fits", true, std::nullopt);
  ExpectThrows<std::runtime_error>(kNotAnImage, [&] { ReadImgHeaderPriv(fresh, &value, TINT, "NAXIS"); });
}

}  // namespace
}  // namespace quen::common::Fits
