#include "workbench/loop/series_file.hpp"

#include <gtest/gtest.h>

#include "testing/environment.hpp"
#include "testing/exceptions.hpp"
#include "testing/fits_files.hpp"
#include "testing/values.hpp"

namespace quen::workbench {
namespace {

using quen::testing::AppendTable;
using quen::testing::ExpectThrows;
using quen::testing::kNan;
using quen::testing::Ramp;
using quen::testing::TempDir;
using quen::testing::WriteImage;

TEST(SeriesFile, ImageHasModesAlongItsFirstAxis) {
  const TempDir folder;
  WriteImage(folder / "s.fits", DOUBLE_IMG, {52, 3}, Ramp(156));
  const Series series = ReadSeries(InputFile(folder / "s.fits"));
  ASSERT_EQ(series.rows(), 3);
  EXPECT_EQ(series(0, 0), 1.0);
  EXPECT_EQ(series(0, 51), 52.0);
  EXPECT_EQ(series(2, 1), 106.0);
}

TEST(SeriesFile, TableIsThatOfTelemetry) {
  const TempDir folder;
  AppendTable(folder / "s.fits", "telemetry", 2, {{"other", "D", {1, 2}}, {"disturbance", "52D", Ramp(104)}});
  const Series series = ReadSeries(InputFile(folder / "s.fits"));
  ASSERT_EQ(series.rows(), 2);
  EXPECT_EQ(series(1, 0), 53.0);
  EXPECT_EQ(series(1, 51), 104.0);
}

TEST(SeriesFile, OtherContentIsRefused) {
  const TempDir folder;
  AppendTable(folder / "narrow.fits", "telemetry", 2, {{"disturbance", "51D", Ramp(102)}});
  ExpectThrows<std::runtime_error>(
      (folder / "narrow.fits") +
          ": expected a column \"disturbance\" of 52 values in its table \"telemetry\", found none",
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

}  // namespace
}  // namespace quen::workbench
