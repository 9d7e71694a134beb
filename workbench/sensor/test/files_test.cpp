#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <optional>

#include "testing/calibration.hpp"
#include "testing/environment.hpp"
#include "testing/exceptions.hpp"
#include "testing/fits_files.hpp"
#include "testing/second_reader.hpp"
#include "testing/values.hpp"
#include "workbench/engines/engines.hpp"
#include "workbench/sensor/calibration_lookup.hpp"
#include "workbench/sensor/displacement_file.hpp"
#include "workbench/sensor/frame_file.hpp"
#include "workbench/sensor/measurement_file.hpp"

// Files of a sensor, whoever wrote them.

namespace quen::workbench {
namespace {

using quen::testing::AppendTable;
using quen::testing::ExpectThrows;
using quen::testing::kInfinity;
using quen::testing::kNan;
using quen::testing::Ramp;
using quen::testing::TempDir;
using quen::testing::WriteImage;
using quen::testing::WriteText;

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
  ExpectThrows<Unreadable>((folder / "none") + ": cannot be read: No such file or directory",
                           [&] { ReadDisplacements(InputFile(folder / "none")); });
}

TEST(DisplacementFile, FitsIsWrittenAndRead) {
  const TempDir folder;
  const std::string path = folder / "d.fits";
  Displacements displacements;
  displacements.x = Ramp(1089, 0.5);
  displacements.y = Ramp(1089, -3.0);
  WriteText(path, DisplacementFile(displacements, "test"));
  EXPECT_EQ(testing::ComplaintsOfFitsverify(path), "");
  EXPECT_EQ(testing::DescribedByAstropy(path), "0 image '' 8\n1 table 'slopes' 1089 x:D y:D\n");
  EXPECT_EQ(testing::KeywordReadByAstropy(path, 1, "TUNIT1"), "pix");
  EXPECT_EQ(testing::KeywordReadByAstropy(path, 1, "TUNIT2"), "pix");
  const auto columns = testing::ColumnsReadByAstropy(path, "slopes", {"x", "y"});
  EXPECT_EQ(columns[0], displacements.x);
  EXPECT_EQ(columns[1], displacements.y);
  EXPECT_EQ(ReadDisplacements(InputFile(path)).x, displacements.x);
  EXPECT_EQ(ReadDisplacements(InputFile(path)).y, displacements.y);
}

TEST(DisplacementFile, FitsThatIsWrongIsRefused) {
  const TempDir folder;
  for (const long rows : {607, 1090}) {
    const auto values = Ramp(static_cast<std::size_t>(rows));
    const std::string count = std::to_string(rows);
    AppendTable(folder / count, "slopes", rows, {{"x", "D", values}, {"y", "D", values}});
    ExpectThrows<std::runtime_error>(
        (folder / count) + ": expected 1089 rows in its table \"slopes\", one per sub-aperture, found " + count,
        [&] { ReadDisplacements(InputFile(folder / count)); });
  }
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

void WriteBlank(const std::string& path, int blank) {
  fitsfile* file = nullptr;
  int status = 0;
  fits_open_file(&file, path.c_str(), READWRITE, &status);
  fits_update_key(file, TINT, "BLANK", &blank, nullptr, &status);
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

TEST(FrameFile, PixelsAbove32767AreUnsigned) {
  const TempDir folder;
  WriteFrame(folder / "f.fits", {-1, -1, -1, -1, -1, -1, 0, -1, -1, -1, -1, 32767}, 32768.0);
  const Frame frame = ReadFrame(InputFile(folder / "f.fits"));
  EXPECT_TRUE(frame.is_unsigned);
  EXPECT_EQ(frame.pixels[5], 32767);
  EXPECT_EQ(frame.pixels[6], 32768);
  EXPECT_EQ(frame.Value(frame.pixels[11]), 65535.0);
}

TEST(FrameFile, NumbersOfAnyTypeAreTakenIfTheyAreWhole) {
  const TempDir folder;
  for (const int bitpix : {BYTE_IMG, LONG_IMG, LONGLONG_IMG, FLOAT_IMG, DOUBLE_IMG}) {
    WriteImage(folder / "f.fits", bitpix, {4, 3}, Ramp(12, 0.0));
    const Frame frame = ReadFrame(InputFile(folder / "f.fits"));
    EXPECT_EQ(frame.pixels, (std::vector<std::uint16_t>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11})) << bitpix;
    EXPECT_FALSE(frame.is_unsigned);
  }
  WriteImage(folder / "u.fits", LONG_IMG, {2, 1}, {65535, 0});
  EXPECT_EQ(ReadFrame(InputFile(folder / "u.fits")).pixels, (std::vector<std::uint16_t>{65535, 0}));
  WriteImage(folder / "s.fits", LONG_IMG, {2, 1}, {-32768, 32767});
  EXPECT_EQ(ReadFrame(InputFile(folder / "s.fits")).pixels, (std::vector<std::uint16_t>{32768, 32767}));
  WriteFrame(folder / "scaled.fits", Ramp(12, 0.0), 0.0, 2.0);
  EXPECT_EQ(ReadFrame(InputFile(folder / "scaled.fits")).pixels[11], 22);
}

TEST(FrameFile, PixelsThatAreNoWholeNumbersOf16BitsAreRefused) {
  const TempDir folder;
  struct Case {
    std::vector<double> pixels;
    const char* complaint;
  };
  const std::vector<Case> cases = {{{0.0, 0.5}, "-32768 to 32767, found 0.5 at column 1, row 0"},
                                   {{-32769.0, 0.0}, "-32768 to 32767, found -32769 at column 0, row 0"},
                                   {{1.0, 65536.0}, "0 to 65535, found 65536 at column 1, row 0"},
                                   {{-1.0, 40000.0}, "0 to 65535, found -1 at column 0, row 0"},
                                   {{0.0, -kInfinity}, "-32768 to 32767, found -inf at column 1, row 0"}};
  for (const Case& wrong : cases) {
    const std::string path = folder / "f.fits";
    WriteImage(path, DOUBLE_IMG, {2, 1}, wrong.pixels);
    ExpectThrows<std::runtime_error>(path + ": expected pixels that are whole numbers from " + wrong.complaint,
                                     [&] { ReadFrame(InputFile(path)); });
  }
}

TEST(FrameFile, PixelsThatAreNanOrBlankHaveNoValue) {
  const TempDir folder;
  WriteImage(folder / "nan.fits", DOUBLE_IMG, {2, 2}, {7.0, kNan, kNan, 40000.0});
  WriteFrame(folder / "plain.fits", {7, 5, 5, -3, 0, 0, 0, 0, 0, 0, 0, 0}, std::nullopt);
  WriteFrame(folder / "blank.fits", {7, 5, 5, -3, 0, 0, 0, 0, 0, 0, 0, 0}, 32768.0);
  for (const char* const name : {"nan.fits", "plain.fits", "blank.fits"}) WriteBlank(folder / name, 5);
  const Frame of_nan = ReadFrame(InputFile(folder / "nan.fits"));
  EXPECT_EQ(of_nan.pixels, (std::vector<std::uint16_t>{7, 0, 0, 40000}));
  EXPECT_EQ(of_nan.blank, (std::vector<std::uint8_t>{0, 1, 1, 0}));
  EXPECT_TRUE(std::isnan(of_nan.Values()[2]));
  EXPECT_EQ(of_nan.Values()[3], 40000.0);
  for (const auto& [name, zero] : {std::pair("plain.fits", 0U), {"blank.fits", 32768U}}) {
    const Frame frame = ReadFrame(InputFile(folder / name));
    EXPECT_EQ(frame.blank, (std::vector<std::uint8_t>{0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(frame.pixels[0], 7 + zero);
    EXPECT_EQ(frame.pixels[1], 0);
    EXPECT_EQ(frame.pixels[4], zero);
  }
  WriteBlank(folder / "plain.fits", 6);
  EXPECT_TRUE(ReadFrame(InputFile(folder / "plain.fits")).blank.empty());
  WriteImage(folder / "none.fits", DOUBLE_IMG, {2, 1}, {kNan, kNan});
  ExpectThrows<std::runtime_error>((folder / "none.fits") + ": expected pixels with values, found none",
                                   [&] { ReadFrame(InputFile(folder / "none.fits")); });
}

TEST(FrameFile, OtherImagesAreRefused) {
  const TempDir folder;
  WriteImage(folder / "row.fits", SHORT_IMG, {4}, Ramp(4));
  ExpectThrows<std::runtime_error>(
      (folder / "row.fits") + ": expected a frame, an image of two axes, or a cube of frames, of three; found 1 axes",
      [&] { ReadFrame(InputFile(folder / "row.fits")); });
  WriteImage(folder / "cube.fits", SHORT_IMG, {2, 3, 2}, Ramp(12, 0.0));
  ExpectThrows<std::runtime_error>((folder / "cube.fits") + ": expected one frame, found 2",
                                   [&] { ReadFrame(InputFile(folder / "cube.fits")); });
  WriteText(folder / "text", "no FITS");
  ExpectThrows<std::runtime_error>((folder / "text") + ": expected a FITS file, found something else",
                                   [&] { ReadFrame(InputFile(folder / "text")); });
}

TEST(FrameFile, FramesOfACubeAreItsPlanes) {
  const TempDir folder;
  WriteImage(folder / "cube.fits", SHORT_IMG, {2, 3, 2}, Ramp(12, 0.0));
  const InputFile file(folder / "cube.fits");
  const FrameReader frames(file, "");
  EXPECT_EQ(frames.Width(), 2U);
  EXPECT_EQ(frames.Height(), 3U);
  ASSERT_EQ(frames.Count(), 2U);
  EXPECT_EQ(frames.Read(0).pixels, (std::vector<std::uint16_t>{0, 1, 2, 3, 4, 5}));
  EXPECT_EQ(frames.Read(1).pixels, (std::vector<std::uint16_t>{6, 7, 8, 9, 10, 11}));
}

// --- Slopes

TEST(MeasurementFile, MissingTablesAreTheSyntheticGrids) {
  const TempDir folder;
  AppendTable(folder / "s.fits", "slopes", 1089, {{"x", "D", Ramp(1089)}, {"y", "D", Ramp(1089, 7.0)}});
  const MeasuredField field = ReadField(InputFile(folder / "s.fits"));
  EXPECT_TRUE(field.flux.empty());
  EXPECT_TRUE(field.overlay.IsUsed(0));
  EXPECT_EQ(field.overlay.rois[34].x_low, 48);
  EXPECT_EQ(field.overlay.rois[34].x_up, 72);
  EXPECT_EQ(field.overlay.rois[34].y_up, 60);
  EXPECT_EQ(field.overlay.rois[34].x_ref, 59.5);
  EXPECT_EQ(field.overlay.rois[34].y_ref, 47.5);
  EXPECT_EQ(field.overlay.displacements->x, Ramp(1089));
  EXPECT_EQ(field.overlay.displacements->y, Ramp(1089, 7.0));
}

TEST(MeasurementFile, TablesAreReadAsTheyAre) {
  const TempDir folder;
  testing::Calibration calibration;
  calibration.rois["x_low"][3] = 90.0;
  calibration.Write(folder.Path());
  const std::string path = folder / "data/shs_rois.fits";
  const MeasuredField regions = ReadField(InputFile(path));
  EXPECT_EQ(regions.overlay.rois[3].x_low, 90);
  EXPECT_FALSE(regions.overlay.displacements);
  EXPECT_TRUE(regions.overlay.IsUsed(606));
  EXPECT_FALSE(regions.overlay.IsUsed(607));
  AppendTable(path, "slopes", 1089, {{"flux", "D", Ramp(1089, 2.0)}, {"x", "D", Ramp(1089)}, {"y", "D", Ramp(1089)}});
  EXPECT_EQ(ReadField(InputFile(path)).flux, Ramp(1089, 2.0));
  calibration.rois.Resize(3);
  AppendTable(folder / "short.fits", "rois", 3, calibration.rois.columns);
  EXPECT_THROW(ReadField(InputFile(folder / "short.fits")), std::runtime_error);
}

TEST(MeasurementFile, ReferencesAreTheLibrarysWhereverTheyAre) {
  const TempDir folder;
  testing::Calibration calibration;
  const std::vector<double> references = {815.75, 0.5, kNan, 816.0};
  std::ranges::copy(references, calibration.rois["x_ref"].begin());
  std::ranges::copy(references, calibration.rois["y_ref"].begin() + 1);
  calibration.Write(folder.Path());
  UseCalibration(folder.Path());
  shssim::ShsSimulator simulator;
  simulator.ComputeSlopes(*MakeEngine("weighted"), 12.0, folder / "slopes.fits");
  const std::string ours = MeasurementFile(simulator);
  WriteText(folder / "ours.fits", ours);
  EXPECT_TRUE(testing::BytesWithoutChecksums(folder / "ours.fits") ==
              testing::BytesWithoutChecksums(folder / "slopes.fits"));
  const auto field = ReadField(InputFile::InMemory("ours", ours));
  EXPECT_EQ(field.overlay.used, simulator.RoisUsed());
  EXPECT_EQ(field.overlay.rois[0].x_ref, 815.0);
}

}  // namespace
}  // namespace quen::workbench
