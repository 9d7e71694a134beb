#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <optional>

#include "testing/calibration.hpp"
#include "testing/environment.hpp"
#include "testing/exceptions.hpp"
#include "testing/fits_files.hpp"
#include "testing/second_reader.hpp"
#include "tools/quen-shs/src/files/displacement_file.hpp"
#include "tools/quen-shs/src/files/frame_file.hpp"
#include "tools/quen-shs/src/files/numbers.hpp"
#include "tools/quen-shs/src/files/series_file.hpp"
#include "tools/quen-shs/src/files/slopes_file.hpp"

// Files that the tool reads, whoever wrote them.

namespace {

using quen::testing::AppendTable;
using quen::testing::ExpectThrows;
using quen::testing::Ramp;
using quen::testing::TempDir;
using quen::testing::WriteImage;
using quen::testing::WriteText;
using quen_shs::Displacements;
using quen_shs::Frame;
using quen_shs::InputFile;
using quen_shs::ReadDisplacements;
using quen_shs::ReadFrame;
using quen_shs::ReadSeries;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

// --- Numbers

TEST(Numbers, AreNumbersAndNothingElse) {
  EXPECT_EQ(quen_shs::ParseNumber("1.5"), 1.5);
  EXPECT_EQ(quen_shs::ParseNumber(" +2e-3\t"), 2e-3);
  EXPECT_EQ(quen_shs::ParseNumber("-7"), -7.0);
  for (const char* const text : {"", " ", "1.5x", "1,5", "nan", "inf", "--1", "1 2", "0x10"}) {
    EXPECT_EQ(quen_shs::ParseNumber(text), std::nullopt) << text;
  }
  EXPECT_EQ(quen_shs::ParseWhole("12"), 12);
  EXPECT_EQ(quen_shs::ParseWhole("-1e3"), -1000);
  EXPECT_EQ(quen_shs::ParseWhole("1.5"), std::nullopt);
  EXPECT_EQ(quen_shs::ParseWhole("1e10"), std::nullopt);
}

// --- Displacements

/// 1089 lines "i.25,-i".
std::string Lines(std::size_t count = 1089) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) text += std::to_string(i) + ".25,-" + std::to_string(i) + "\n";
  return text;
}

TEST(DisplacementFile, TextIsALinePerSubAperture) {
  const TempDir folder;
  WriteText(folder / "d.csv", Lines());
  const Displacements displacements = ReadDisplacements(InputFile(folder / "d.csv"));
  for (std::size_t i = 0; i < 1089; ++i) {
    ASSERT_EQ(displacements.x[i], static_cast<double>(i) + 0.25);
    ASSERT_EQ(displacements.y[i], -static_cast<double>(i));
  }
}

TEST(DisplacementFile, TextMayHaveTitleCommentsEmptyLinesAndBlanks) {
  const TempDir folder;
  WriteText(folder / "d.csv", "# from a test\r\ndx, dy\r\n\r\n 5 ,\t6 \r\n" + Lines(1088));
  const Displacements displacements = ReadDisplacements(InputFile(folder / "d.csv"));
  EXPECT_EQ(displacements.x[0], 5.0);
  EXPECT_EQ(displacements.y[0], 6.0);
  EXPECT_EQ(displacements.x[1], 0.25);
}

TEST(DisplacementFile, TextThatIsWrongIsNamedByItsLine) {
  const TempDir folder;
  const std::string path = folder / "d.csv";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"1;2", "line 3: expected two finite numbers \"dx,dy\", found \"1;2\""},
      {"1", "line 3: expected two finite numbers \"dx,dy\", found \"1\""},
      {"1,nan", "line 3: expected two finite numbers \"dx,dy\", found \"1,nan\""},
      {"1,2,3", "line 3: expected two finite numbers \"dx,dy\", found \"1,2,3\""},
      {"dx,dy", "line 3: expected two finite numbers \"dx,dy\", found \"dx,dy\""}};
  for (const auto& [line, reason] : cases) {
    WriteText(path, Lines(2).append(line).append("\n").append(Lines(1086)));
    ExpectThrows<std::runtime_error>(std::string(path).append(", ").append(reason),
                                     [&] { ReadDisplacements(InputFile(path)); });
  }
  for (const std::size_t count : {0U, 607U, 1088U, 1090U}) {
    WriteText(path, Lines(count));
    ExpectThrows<std::runtime_error>(
        path + ": expected 1089 lines \"dx,dy\", one per sub-aperture, found " + std::to_string(count),
        [&] { ReadDisplacements(InputFile(path)); });
  }
  ExpectThrows<std::runtime_error>((folder / "none") + ": cannot be read: No such file or directory",
                                   [&] { ReadDisplacements(InputFile(folder / "none")); });
}

TEST(DisplacementFile, FitsIsWrittenAndRead) {
  const TempDir folder;
  const std::string path = folder / "d.fits";
  Displacements displacements;
  displacements.x = Ramp(1089, 0.5);
  displacements.y = Ramp(1089, -3.0);
  WriteText(path, DisplacementFile(displacements, "test"));
  EXPECT_EQ(quen::testing::ComplaintsOfFitsverify(path), "");
  EXPECT_EQ(quen::testing::DescribedByAstropy(path), "0 image '' 8\n1 table 'slopes' 1089 x:D y:D\n");
  EXPECT_EQ(quen::testing::ColumnReadByAstropy(path, "slopes", "x"), displacements.x);
  EXPECT_EQ(quen::testing::ColumnReadByAstropy(path, "slopes", "y"), displacements.y);
  EXPECT_EQ(ReadDisplacements(InputFile(path)).x, displacements.x);
  EXPECT_EQ(ReadDisplacements(InputFile(path)).y, displacements.y);
}

TEST(DisplacementFile, FitsThatIsWrongIsRefused) {
  const TempDir folder;
  AppendTable(folder / "short.fits", "slopes", 607, {{"x", "D", Ramp(607)}, {"y", "D", Ramp(607)}});
  ExpectThrows<std::runtime_error>(
      (folder / "short.fits") + ": expected 1089 rows in its table \"slopes\", one per sub-aperture, found 607",
      [&] { ReadDisplacements(InputFile(folder / "short.fits")); });
  std::vector<double> y = Ramp(1089);
  y[16] = kNan;
  AppendTable(folder / "nan.fits", "slopes", 1089, {{"x", "D", Ramp(1089)}, {"y", "D", y}});
  ExpectThrows<std::runtime_error>(
      (folder / "nan.fits") + ": expected finite displacements in its table \"slopes\", found nan in row 17 of y",
      [&] { ReadDisplacements(InputFile(folder / "nan.fits")); });
  AppendTable(folder / "other.fits", "other", 3, {{"x", "D", Ramp(3)}});
  ExpectThrows<std::runtime_error>((folder / "other.fits") + ": expected a table \"slopes\", found none",
                                   [&] { ReadDisplacements(InputFile(folder / "other.fits")); });
}

// --- Frames

/// A frame of 4 × 3 pixels with this BZERO and BSCALE in its header.
void WriteFrame(const std::string& path, const std::vector<double>& stored, std::optional<double> zero,
                std::optional<double> scale = std::nullopt) {
  WriteImage(path, SHORT_IMG, {4, 3}, stored);
  int status = 0;
  fitsfile* file = nullptr;
  fits_open_file(&file, path.c_str(), READWRITE, &status);
  if (zero) fits_write_key(file, TDOUBLE, "BZERO", &*zero, nullptr, &status);
  if (scale) fits_write_key(file, TDOUBLE, "BSCALE", &*scale, nullptr, &status);
  fits_close_file(file, &status);
  ASSERT_EQ(status, 0);
}

TEST(FrameFile, SignedPixelsAreTakenAsTheyAre) {
  const TempDir folder;
  WriteFrame(folder / "f.fits", {0, 1, -1, 32767, -32768, 5, 6, 7, 8, 9, 10, 11}, std::nullopt);
  const Frame frame = ReadFrame(InputFile(folder / "f.fits"));
  EXPECT_EQ(frame.width, 4U);
  EXPECT_EQ(frame.height, 3U);
  EXPECT_EQ(frame.pixels, (std::vector<std::uint16_t>{0, 1, 65535, 32767, 32768, 5, 6, 7, 8, 9, 10, 11}));
}

TEST(FrameFile, UnsignedPixelsAreThoseOfBzero) {
  const TempDir folder;
  WriteFrame(folder / "f.fits", {-32768, -32767, -1, 0 - 1.0, -32768, -32763, 0 - 2.0, -3, -4, -5, -6, -7}, 32768.0);
  const Frame frame = ReadFrame(InputFile(folder / "f.fits"));
  EXPECT_EQ(frame.pixels,
            (std::vector<std::uint16_t>{0, 1, 32767, 32767, 0, 5, 32766, 32765, 32764, 32763, 32762, 32761}));
}

TEST(FrameFile, PixelsThatEnginesWouldTakeForDarkAreRefused) {
  const TempDir folder;
  const std::string path = folder / "f.fits";
  WriteFrame(path, {-1, -1, -1, -1, -1, -1, 0, -1, -1, -1, -1, -1}, 32768.0);
  ExpectThrows<std::runtime_error>(
      path +
          ": expected pixels up to 32767, found 32768 at column 2, row 1; engines take pixels for signed numbers: "
          "scale the frame down, or subtract its background",
      [&] { ReadFrame(InputFile(path)); });
}

TEST(FrameFile, OtherImagesAreRefused) {
  const TempDir folder;
  WriteImage(folder / "d.fits", DOUBLE_IMG, {4, 3}, Ramp(12));
  ExpectThrows<std::runtime_error>(
      (folder / "d.fits") + ": expected an image of two axes with BITPIX 16, found 2 axes with BITPIX -64",
      [&] { ReadFrame(InputFile(folder / "d.fits")); });
  WriteImage(folder / "cube.fits", SHORT_IMG, {2, 3, 2}, Ramp(12));
  ExpectThrows<std::runtime_error>(
      (folder / "cube.fits") + ": expected an image of two axes with BITPIX 16, found 3 axes with BITPIX 16",
      [&] { ReadFrame(InputFile(folder / "cube.fits")); });
  WriteFrame(folder / "scaled.fits", Ramp(12), 0.0, 2.0);
  ExpectThrows<std::runtime_error>((folder / "scaled.fits") +
                                       ": expected BSCALE 1 and BZERO 0 or 32768, found 2 and 0; write the frame as "
                                       "16-bit integers",
                                   [&] { ReadFrame(InputFile(folder / "scaled.fits")); });
  WriteFrame(folder / "zero.fits", Ramp(12), 100.0);
  EXPECT_THROW(ReadFrame(InputFile(folder / "zero.fits")), std::runtime_error);
  WriteText(folder / "text", "no FITS");
  ExpectThrows<std::runtime_error>((folder / "text") + ": expected a FITS file, found something else",
                                   [&] { ReadFrame(InputFile(folder / "text")); });
}

// --- Disturbances

TEST(SeriesFile, ImageHasModesAlongItsFirstAxis) {
  const TempDir folder;
  WriteImage(folder / "s.fits", DOUBLE_IMG, {52, 3}, Ramp(156));
  const quen_shs::Series series = ReadSeries(InputFile(folder / "s.fits"));
  ASSERT_EQ(series.rows(), 3);
  EXPECT_EQ(series(0, 0), 1.0);
  EXPECT_EQ(series(0, 51), 52.0);
  EXPECT_EQ(series(2, 1), 106.0);
}

TEST(SeriesFile, TableIsThatOfTelemetry) {
  const TempDir folder;
  AppendTable(folder / "s.fits", "telemetry", 2, {{"other", "D", {1, 2}}, {"disturbance", "52D", Ramp(104)}});
  const quen_shs::Series series = ReadSeries(InputFile(folder / "s.fits"));
  ASSERT_EQ(series.rows(), 2);
  EXPECT_EQ(series(1, 0), 53.0);
  EXPECT_EQ(series(1, 51), 104.0);
}

TEST(SeriesFile, OtherContentIsRefused) {
  const TempDir folder;
  AppendTable(folder / "narrow.fits", "telemetry", 2, {{"disturbance", "51D", Ramp(102)}});
  ExpectThrows<std::runtime_error>(
      (folder / "narrow.fits") +
          ": expected a column \"disturbance\" of 52 modes in its table \"telemetry\", found none",
      [&] { ReadSeries(InputFile(folder / "narrow.fits")); });
  AppendTable(folder / "without.fits", "telemetry", 2, {{"frame", "D", Ramp(2)}});
  EXPECT_THROW(ReadSeries(InputFile(folder / "without.fits")), std::runtime_error);
  WriteImage(folder / "turned.fits", DOUBLE_IMG, {3, 52}, Ramp(156));
  ExpectThrows<std::runtime_error>(
      (folder / "turned.fits") +
          ": expected a table \"telemetry\", or an image of doubles (BITPIX -64) with NAXIS1 "
          "= 52 modes and NAXIS2 frames; found neither",
      [&] { ReadSeries(InputFile(folder / "turned.fits")); });
  std::vector<double> values = Ramp(156);
  values[57] = kNan;
  WriteImage(folder / "nan.fits", DOUBLE_IMG, {52, 3}, values);
  ExpectThrows<std::runtime_error>(
      (folder / "nan.fits") + ": expected finite modes, found nan in frame 1, mode 5 (counted from 0)",
      [&] { ReadSeries(InputFile(folder / "nan.fits")); });
}

// --- Slopes

TEST(SlopesFile, MissingTablesAreTheSyntheticGrids) {
  const TempDir folder;
  AppendTable(folder / "s.fits", "slopes", 1089, {{"x", "D", Ramp(1089)}, {"y", "D", Ramp(1089, 7.0)}});
  const quen_shs::MeasuredField field = quen_shs::ReadField(InputFile(folder / "s.fits"));
  EXPECT_TRUE(field.flux.empty());
  EXPECT_TRUE(field.overlay.IsUsed(0));
  EXPECT_EQ(field.overlay.rois[34].x_low, 48);
  EXPECT_EQ(field.overlay.rois[34].y_up, 60);
  EXPECT_EQ(field.overlay.displacements->x, Ramp(1089));
  EXPECT_EQ(field.overlay.displacements->y, Ramp(1089, 7.0));
}

TEST(SlopesFile, TablesAreReadAsTheyAre) {
  const TempDir folder;
  quen::testing::Calibration calibration;
  calibration.rois["x_low"][3] = 90.0;
  calibration.Write(folder.Path());
  const std::string path = folder / "data/shs_rois.fits";
  const quen_shs::MeasuredField regions = quen_shs::ReadField(InputFile(path));
  EXPECT_EQ(regions.overlay.rois[3].x_low, 90);
  EXPECT_FALSE(regions.overlay.displacements);
  EXPECT_TRUE(regions.overlay.IsUsed(606));
  EXPECT_FALSE(regions.overlay.IsUsed(607));
  AppendTable(path, "slopes", 1089, {{"flux", "D", Ramp(1089, 2.0)}, {"x", "D", Ramp(1089)}, {"y", "D", Ramp(1089)}});
  EXPECT_EQ(quen_shs::ReadField(InputFile(path)).flux, Ramp(1089, 2.0));
  calibration.rois.Resize(3);
  AppendTable(folder / "short.fits", "rois", 3, calibration.rois.columns);
  EXPECT_THROW(quen_shs::ReadField(InputFile(folder / "short.fits")), std::runtime_error);
}

}  // namespace
