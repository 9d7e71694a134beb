#include "workbench/sensor/calibration.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "centroiders/centre_of_gravity.hpp"
#include "shssim/shs_simulator.hpp"
#include "testing/environment.hpp"
#include "testing/exceptions.hpp"
#include "testing/fits_files.hpp"
#include "testing/second_reader.hpp"
#include "workbench/sensor/calibration_lookup.hpp"
#include "workbench/sensor/geometry.hpp"

namespace quen::workbench {
namespace {

using quen::testing::ColumnReadByAstropy;
using quen::testing::ComplaintsOfFitsverify;
using quen::testing::DescribedByAstropy;
using quen::testing::ExpectThrows;
using quen::testing::KeywordReadByAstropy;
using quen::testing::TempDir;

/// A synthetic calibration, made once.
class SyntheticCalibration : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    folder_ = std::make_unique<TempDir>();
    WriteCalibration(folder_->Path(), false);
    UseCalibration(folder_->Path());
  }
  static void TearDownTestSuite() { folder_.reset(); }
  static std::string File(const std::string& name) { return *folder_ / name; }

 private:
  // NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): shared by the suite.
  static inline std::unique_ptr<TempDir> folder_;
};

TEST_F(SyntheticCalibration, FilesAreGoodFits) {
  for (const char* const name : kCalibrationFiles) EXPECT_EQ(ComplaintsOfFitsverify(File(name)), "");
  EXPECT_EQ(DescribedByAstropy(File("data/M2S.fits")), "0 image '' -64 52x1214\n");
  EXPECT_EQ(DescribedByAstropy(File("data/CM.fits")), "0 image '' -64 1214x52\n");
  EXPECT_EQ(DescribedByAstropy(File("data/shs_rois.fits")),
            "0 image '' 8\n"
            "1 table 'rois' 1089 x_low:I x_up:I x_ref:D y_low:I y_up:I y_ref:D\n"
            "2 table 'rois_used' 1089 is_used:B\n");
}

TEST_F(SyntheticCalibration, HeadersCarryUnitsAndOrigin) {
  EXPECT_EQ(KeywordReadByAstropy(File("data/M2S.fits"), 0, "BUNIT"), "pix/rad");
  EXPECT_EQ(KeywordReadByAstropy(File("data/CM.fits"), 0, "BUNIT"), "rad/pix");
  EXPECT_EQ(KeywordReadByAstropy(File("data/shs_rois.fits"), 1, "TUNIT3"), "pix");
  const std::vector<char> regions = testing::Bytes(File("data/shs_rois.fits"));
  EXPECT_NE(std::string(regions.begin(), regions.end()).find("/ pixel centres are at integers, from 0"),
            std::string::npos);
  EXPECT_EQ(KeywordReadByAstropy(File("data/M2S.fits"), 0, "CREATOR"), "quen-shs calibrate " QUEN_VERSION);
  EXPECT_EQ(KeywordReadByAstropy(File("data/shs_rois.fits"), 2, "CREATOR"), "quen-shs calibrate " QUEN_VERSION);
}

TEST_F(SyntheticCalibration, RegionsAreTheGrids) {
  const std::string path = File("data/shs_rois.fits");
  const auto [x_low, x_up, x_ref, y_low, y_up, y_ref] = testing::RegionsReadByAstropy(path);
  for (std::size_t i = 0; i < 1089; ++i) {
    const std::size_t column = i % 33;
    const std::size_t row = i / 33;
    ASSERT_EQ(x_low[i], static_cast<double>(24 + 24 * column));
    ASSERT_EQ(y_low[i], static_cast<double>(12 + 24 * row));
    ASSERT_EQ(x_up[i], x_low[i] + 24);
    ASSERT_EQ(y_up[i], y_low[i] + 24);
    ASSERT_EQ(x_ref[i], x_low[i] + 11.5);
    ASSERT_EQ(y_ref[i], y_low[i] + 11.5);
  }
  const auto flags = UsedFlags({});
  EXPECT_EQ(ColumnReadByAstropy(path, "rois_used", "is_used"), std::vector<double>(flags.begin(), flags.end()));
}

TEST_F(SyntheticCalibration, ControlMatrixInvertsModesToSlopes) {
  const shssim::ShsSimulator simulator;
  const Eigen::Map<const Matrix> m2s(simulator.M2s().data(), 1214, 52);
  const Eigen::Map<const Matrix> cm(simulator.Cm().data(), 52, 1214);
  EXPECT_LT((cm * m2s - Eigen::MatrixXd::Identity(52, 52)).cwiseAbs().maxCoeff(), 1e-12);
}

TEST_F(SyntheticCalibration, TipIsTheSameXDisplacementEverywhere) {
  const Matrix m2s = ModesToSlopes(UsedFlags({}), ZernikeBasis());
  // Mode 2 is 2x: its gradient of 2 per pupil radius, over a pitch of 24 pixels of 348.
  const double expected = 2.0 * 24.0 / 348.0 * PixelsPerRadian();
  for (Eigen::Index k = 0; k < 607; ++k) {
    ASSERT_NEAR(m2s(k, 0), 0.0, 1e-15);
    ASSERT_NEAR(m2s(607 + k, 0), expected, 1e-14);
    ASSERT_NEAR(m2s(k, 1), expected, 1e-14);
    ASSERT_NEAR(m2s(607 + k, 1), 0.0, 1e-15);
  }
}

TEST_F(SyntheticCalibration, MeasuredModesAreTheMatrixs) {
  // One radian of a mode drawn without noise and measured gives its column of the matrix: no axis is swapped, no sign
  // flipped, nothing half a pixel off. The tolerance is the bias of truncated pixels and of spots cut by their region.
  constexpr double kTolerance = 0.01;
  shssim::ShsSimulator simulator;
  centroiders::CentreOfGravity engine;
  const Eigen::Map<const Matrix> m2s(simulator.M2s().data(), 1214, 52);
  for (const Eigen::Index mode : {0, 1, 2, 3, 7, 51}) {
    std::vector<double> dx(1089, 0.0);
    std::vector<double> dy(1089, 0.0);
    Eigen::Index k = 0;
    for (std::size_t i = 0; i < 1089; ++i) {
      if (simulator.RoisUsed()[i] == 0) continue;
      dy[i] = m2s(k, mode);
      dx[i] = m2s(607 + k, mode);
      ++k;
    }
    simulator.ComputeFrame(dx, dy, 0.0, std::nullopt);
    simulator.ComputeSlopes(engine, 12.0, std::nullopt);
    for (Eigen::Index s = 0; s < 1214; ++s) {
      ASSERT_NEAR(simulator.Slopes()[static_cast<std::size_t>(s)], m2s(s, mode), kTolerance) << "mode " << mode;
    }
  }
}

TEST(WriteCalibration, IsTheSameEveryTime) {
  const TempDir first;
  const TempDir second;
  WriteCalibration(first.Path(), false);
  WriteCalibration(second.Path(), true);
  for (const char* const name : kCalibrationFiles) {
    EXPECT_EQ(testing::BytesWithoutChecksums(first / name), testing::BytesWithoutChecksums(second / name)) << name;
  }
}

TEST(WriteCalibration, RefusesToReplaceAnyOfItsFiles) {
  for (const std::string name : kCalibrationFiles) {
    const TempDir folder;
    std::filesystem::create_directory(folder / "data");
    testing::WriteText(folder / name, "precious");
    ExpectThrows<std::runtime_error>((folder / name) + ": is there already; give --force to replace the calibration",
                                     [&] { WriteCalibration(folder.Path(), false); });
    EXPECT_EQ(testing::EntriesBelow(folder / "data"), 1U);
    EXPECT_EQ(testing::Bytes(folder / name).size(), 8U);
  }
}

TEST(WriteCalibration, ForceReplacesAndLeavesNoOtherFile) {
  const TempDir folder;
  WriteCalibration(folder.Path(), false);
  testing::WriteText(folder / "data/CM.fits", "old");
  const std::vector<std::string> paths = WriteCalibration(folder.Path(), true);
  EXPECT_EQ(paths, (std::vector<std::string>{folder / "data/M2S.fits", folder / "data/CM.fits",
                                             folder / "data/shs_rois.fits"}));
  EXPECT_EQ(ComplaintsOfFitsverify(folder / "data/CM.fits"), "");
  EXPECT_EQ(testing::EntriesBelow(folder / "data"), 3U);
}

TEST(WriteCalibration, FailureLeavesNothing) {
  const TempDir folder;
  std::filesystem::create_directories(folder / "data/CM.fits/in_the_way");  // a rename cannot replace this
  EXPECT_THROW(WriteCalibration(folder.Path(), true), std::exception);
  std::size_t parts = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder / "data")) {
    if (entry.path().extension() == ".part") ++parts;
  }
  EXPECT_EQ(parts, 0U);
}

TEST(UseCalibration, NamesTheFirstMissingFileAndTheRemedy) {
  const TempDir folder;
  WriteCalibration(folder.Path(), false);
  std::filesystem::remove(folder / "data/CM.fits");
  ExpectThrows<std::runtime_error>("no calibration in " + folder.Path() + ": " + (folder / "data/CM.fits") +
                                       " is missing; 'quen-shs calibrate " + folder.Path() + "' makes a synthetic one",
                                   [&] { UseCalibration(folder.Path()); });
}

TEST(CalibrationAbove, IsTheOneWhoseDataThisFolderIs) {
  const TempDir folder;
  WriteCalibration(folder / "sensor", false);
  std::filesystem::create_directories(folder / "data");
  std::filesystem::create_directory_symlink(folder / "sensor/data", folder / "link");
  EXPECT_EQ(CalibrationAbove(folder / "sensor/data"), folder / "sensor");
  EXPECT_EQ(CalibrationAbove(folder / "sensor/data/"), folder / "sensor");
  for (const char* const other : {"sensor", "data", "link", "nowhere/data", "sensor/data/M2S.fits", "sensor/../data"}) {
    EXPECT_EQ(CalibrationAbove(folder / other), std::nullopt) << other;
  }

  std::filesystem::remove(folder / "sensor/data/M2S.fits");
  const testing::ScopedCurrentDirectory within(folder / "sensor/data");
  for (const char* const here : {".", "./", "../data"}) EXPECT_EQ(CalibrationAbove(here), "..") << here;
}

TEST(UseCalibration, NamesTheFolderAboveItsData) {
  const TempDir folder;
  WriteCalibration(folder.Path(), false);
  const testing::ScopedCurrentDirectory within(folder / "data");
  ExpectThrows<std::runtime_error>(
      "no calibration in .: ./data/M2S.fits is missing; give the folder above, .., which has one",
      [] { UseCalibration("."); });
}

}  // namespace
}  // namespace quen::workbench
