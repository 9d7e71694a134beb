#include "basesim/base_simulator.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <type_traits>

#include "testing/calibration.hpp"
#include "testing/exceptions.hpp"

namespace quen::basesim {
namespace {

using quen::testing::Calibration;
using quen::testing::CalibrationFolder;
using quen::testing::ClearMessages;
using quen::testing::ExpectThrows;
using quen::testing::ExpectThrowsWithDetails;
using quen::testing::OpenDescriptors;
using quen::testing::ScopedVariable;
using quen::testing::WriteText;

constexpr const char* kPrefix = "Simulator can not initialize: ";

/// Loading `calibration` throws exactly an E with exactly this text, and leaves no descriptor open.
template <typename E>
void ExpectRefused(const Calibration& calibration, const std::string& text) {
  const CalibrationFolder folder(calibration);
  const std::size_t descriptors = OpenDescriptors();
  ExpectThrows<E>(text, [] { BaseSimulator(); });
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

/// As ExpectRefused, for texts that name the region file.
void ExpectMisconfigured(const Calibration& calibration) {
  const CalibrationFolder folder(calibration);
  ExpectThrows<std::runtime_error>(
      std::string(kPrefix) + "ConstructRois: Misconfigured fits file: " + (folder / "data/shs_rois.fits"),
      [] { BaseSimulator(); });
}

std::string NotFound(const std::string& name) {
  return kPrefix + ("FileSystem: Path or file " + name) + " not found, searched in:\n/\n./\n$CFGPATH ()\n";
}

TEST(BaseSimulator, ConstantsAreTheSensors) {
  EXPECT_EQ(kNumRois, 1089U);
  EXPECT_EQ(kFrameWidth, 840U);
  EXPECT_EQ(kFrameHeight, 816U);
  EXPECT_EQ(kNumModes, 52U);
  EXPECT_EQ(kNumSlopes, 1214U);
}

TEST(BaseSimulator, LoadsEverythingInFileOrder) {
  Calibration calibration;
  calibration.rois["x_ref"][5] = 17.25;
  calibration.rois["y_ref"][5] = 801.5;
  calibration.rois_used["is_used"][3] = 200;
  const CalibrationFolder folder(calibration);
  const std::size_t descriptors = OpenDescriptors();
  const BaseSimulator simulator;
  EXPECT_EQ(OpenDescriptors(), descriptors);
  EXPECT_EQ(simulator.M2s(), calibration.m2s.values);
  EXPECT_EQ(simulator.Cm(), calibration.cm.values);
  ASSERT_EQ(simulator.Rois().size(), 1089U);
  for (std::size_t i = 0; i < 1089; ++i) {
    const auto& roi = simulator.Rois()[i];
    ASSERT_EQ(roi.x_low, calibration.rois["x_low"][i]);
    ASSERT_EQ(roi.x_up, calibration.rois["x_up"][i]);
    ASSERT_EQ(roi.y_low, calibration.rois["y_low"][i]);
    ASSERT_EQ(roi.y_up, calibration.rois["y_up"][i]);
    ASSERT_EQ(roi.x_ref, calibration.rois["x_ref"][i]);
    ASSERT_EQ(roi.y_ref, calibration.rois["y_ref"][i]);
    ASSERT_EQ(roi.x_max, 840);
    ASSERT_EQ(roi.y_max, 816);
  }
  ASSERT_EQ(simulator.RoisUsed().size(), 1089U);
  for (std::size_t i = 0; i < 1089; ++i) ASSERT_EQ(simulator.RoisUsed()[i], calibration.rois_used["is_used"][i]);
}

TEST(BaseSimulator, IsFoundAlongCfgpathFirst) {
  const CalibrationFolder elsewhere;
  Calibration other;
  other.m2s.values[0] = 99;
  other.Write(elsewhere / "cfg");
  const ScopedVariable cfgpath("CFGPATH", elsewhere / "cfg");
  EXPECT_EQ(BaseSimulator().M2s()[0], 99);
}

TEST(BaseSimulator, OtherColumnsAndOrdersAreAccepted) {
  Calibration calibration;
  std::swap(calibration.rois.columns[0], calibration.rois.columns[5]);
  calibration.rois.columns.insert(calibration.rois.columns.begin(), {"id", "J", std::vector<double>(1089, 1)});
  const CalibrationFolder folder(calibration);
  EXPECT_EQ(BaseSimulator().Rois()[1].x_low, 48);
}

TEST(BaseSimulator, RegionTableOfOtherLengthIsMisconfigured) {
  for (const std::size_t rows : {std::size_t{1088}, std::size_t{1090}}) {
    Calibration calibration;
    calibration.rois.Resize(rows);
    ExpectMisconfigured(calibration);
  }
  Calibration empty;
  for (auto& column : empty.rois.columns) column.values.clear();
  ExpectMisconfigured(empty);
}

TEST(BaseSimulator, LengthOfTheFlagsIsNotChecked) {
  for (const std::size_t rows : {std::size_t{1}, std::size_t{1088}, std::size_t{1090}, std::size_t{5000}}) {
    Calibration calibration;
    calibration.rois_used.Resize(rows);
    const CalibrationFolder folder(calibration);
    EXPECT_EQ(BaseSimulator().RoisUsed().size(), rows);
  }
}

TEST(BaseSimulator, EachMissingColumnIsNamedInTheOrderOfReading) {
  // The columns up to and with the named one are missing: the first in the order of reading is reported.
  const std::vector<std::string> order = {"x_low", "x_up", "x_ref", "y_low", "y_up", "y_ref"};
  for (std::size_t first = 0; first < order.size(); ++first) {
    Calibration calibration;
    for (std::size_t k = first; k < order.size(); ++k) calibration.rois.Remove(order[k]);
    calibration.rois.columns.push_back({"filler", "D", std::vector<double>(1089, 0)});
    ExpectRefused<std::runtime_error>(calibration,
                                      kPrefix + ("ReadColumnOrThrow: misconfigured column: " + order[first]));
  }
}

TEST(BaseSimulator, MissingFlagColumnIsNamed) {
  Calibration calibration;
  calibration.rois_used.columns[0].name = "used";
  ExpectRefused<std::runtime_error>(calibration,
                                    kPrefix + std::string("ReadColumnOrThrow: misconfigured column: is_used"));
}

TEST(BaseSimulator, MissingColumnComesBeforeTheLength) {
  Calibration calibration;
  calibration.rois.Resize(1088);
  calibration.rois.Remove("y_ref");
  ExpectRefused<std::runtime_error>(calibration,
                                    kPrefix + std::string("ReadColumnOrThrow: misconfigured column: y_ref"));
}

TEST(BaseSimulator, InvalidRegionPassesUnwrapped) {
  Calibration calibration;
  calibration.rois["x_low"][1088] = 800;
  calibration.rois["x_up"][1088] = 799;
  ExpectRefused<std::invalid_argument>(calibration, "Roi: invalid coordinates: (800..799),(780..804)");
}

TEST(BaseSimulator, InvalidReferencePassesUnwrapped) {
  Calibration calibration;
  calibration.rois["y_ref"][0] = 816.5;
  ExpectRefused<std::invalid_argument>(calibration, "Roi: invalid reference point: (35.500000,816.500000)");
}

TEST(BaseSimulator, UnusedRegionsAreValidatedToo) {
  Calibration calibration;
  calibration.rois_used["is_used"][700] = 0;
  calibration.rois["x_up"][700] = 841;
  ExpectRefused<std::invalid_argument>(
      calibration, "Roi: invalid coordinates: (" + std::to_string(static_cast<int>(calibration.rois["x_low"][700])) +
                       "..841),(" + std::to_string(static_cast<int>(calibration.rois["y_low"][700])) + ".." +
                       std::to_string(static_cast<int>(calibration.rois["y_up"][700])) + ")");
}

TEST(BaseSimulator, RegionsAreLimitedByTheFrame) {
  Calibration calibration;
  calibration.rois["y_up"][0] = 816;
  calibration.rois["x_up"][0] = 840;
  const CalibrationFolder folder(calibration);
  EXPECT_EQ(BaseSimulator().Rois()[0].n_pixels, 816U * 804U);
}

TEST(BaseSimulator, InvalidRegionComesBeforeTheFlags) {
  Calibration calibration;
  calibration.rois["x_up"][0] = 841;
  calibration.rois_used.columns[0].name = "used";
  ExpectRefused<std::invalid_argument>(calibration, "Roi: invalid coordinates: (24..841),(12..36)");
}

TEST(BaseSimulator, MatrixOfOtherBitpixPassesUnwrapped) {
  Calibration m2s;
  m2s.m2s.bitpix = FLOAT_IMG;
  ExpectRefused<std::invalid_argument>(m2s, "Fits: File has wrong image type, expected: -64 , acctual: -32");
  Calibration cm;
  cm.cm.bitpix = LONG_IMG;
  ExpectRefused<std::invalid_argument>(cm, "Fits: File has wrong image type, expected: -64 , acctual: 32");
}

TEST(BaseSimulator, SwappedAxesAreWrapped) {
  Calibration m2s;
  m2s.m2s.dims = {1214, 52};
  ExpectRefused<std::runtime_error>(
      m2s, kPrefix + std::string("Fits: Image size does not match for the 0th dimension, expected: 52, acctual: 1214"));
  Calibration cm;
  cm.cm.dims = {52, 1214};
  ExpectRefused<std::runtime_error>(
      cm, kPrefix + std::string("Fits: Image size does not match for the 0th dimension, expected: 1214, acctual: 52"));
}

TEST(BaseSimulator, OtherNumberOfAxesIsWrapped) {
  Calibration calibration;
  calibration.cm.dims = {1214, 52, 1};
  ExpectRefused<std::runtime_error>(
      calibration,
      kPrefix + std::string("Fits: Image dimansions do not match, expected: 2 dimensions, actual: 3 dimensions"));
}

TEST(BaseSimulator, LargerMatrixPassesUnwrapped) {
  Calibration calibration;
  calibration.m2s.dims = {53, 1214};
  calibration.m2s.values.resize(std::size_t{53} * 1214);
  ExpectRefused<std::invalid_argument>(calibration,
                                       "Fits: Provided buffer is too small, expected at least: 64342 , acctual: 63128");
}

TEST(BaseSimulator, MissingFilesAreReportedInTheOrderOfLoading) {
  const CalibrationFolder folder;
  for (const char* const name : {"data/shs_rois.fits", "data/CM.fits", "data/M2S.fits"}) {
    std::filesystem::remove(folder / name);
    ExpectThrows<std::runtime_error>(NotFound(name), [] { BaseSimulator(); });
  }
}

TEST(BaseSimulator, OfTwoBrokenFilesTheFirstIsReported) {
  Calibration both;
  both.m2s.dims = {1214, 52};
  both.cm.bitpix = FLOAT_IMG;
  ExpectRefused<std::runtime_error>(
      both,
      kPrefix + std::string("Fits: Image size does not match for the 0th dimension, expected: 52, acctual: 1214"));
  Calibration later;
  later.cm.bitpix = FLOAT_IMG;
  later.rois.Resize(1088);
  ExpectRefused<std::invalid_argument>(later, "Fits: File has wrong image type, expected: -64 , acctual: -32");
  Calibration bitpix;
  bitpix.m2s.bitpix = FLOAT_IMG;
  bitpix.cm.dims = {52, 1214};
  ExpectRefused<std::invalid_argument>(bitpix, "Fits: File has wrong image type, expected: -64 , acctual: -32");
}

TEST(BaseSimulator, MissingTablesAreWrapped) {
  for (const char* const name : {"rois", "rois_used"}) {
    Calibration calibration;
    (name == std::string("rois") ? calibration.rois : calibration.rois_used).name = "other";
    const CalibrationFolder folder(calibration);
    const std::size_t descriptors = OpenDescriptors();
    ExpectThrowsWithDetails<std::runtime_error>(
        kPrefix + ("Fits: Could not open " + (folder / "data/shs_rois.fits")) + ", details: ", [] { BaseSimulator(); });
    EXPECT_EQ(OpenDescriptors(), descriptors);
  }
}

TEST(BaseSimulator, UnreadableFileIsWrappedWithCfitsiosWords) {
  const CalibrationFolder folder;
  WriteText(folder / "data/CM.fits", "no FITS file");
  const std::size_t descriptors = OpenDescriptors();
  ExpectThrowsWithDetails<std::runtime_error>(
      kPrefix + ("Fits: Could not open " + (folder / "data/CM.fits")) + ", details: ", [] { BaseSimulator(); });
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST(BaseSimulator, TruncatedMatrixIsWrapped) {
  const CalibrationFolder folder;
  std::filesystem::resize_file(folder / "data/M2S.fits", 57600);
  ClearMessages();
  ExpectThrowsWithDetails<std::runtime_error>(kPrefix + std::string("Fits: Error reading image: "),
                                              [] { BaseSimulator(); });
}

TEST(BaseSimulator, UnsetIntrootPassesUnwrapped) {
  const CalibrationFolder folder;
  std::filesystem::remove(folder / "data/M2S.fits");
  const ScopedVariable introot("INTROOT", std::nullopt);
  ExpectThrows<std::logic_error>("basic_string: construction from null is not valid", [] { BaseSimulator(); });
}

TEST(BaseSimulator, ErrorOfTheSearchIsWrapped) {
  const CalibrationFolder folder;
  std::filesystem::remove(folder / "data/M2S.fits");
  const ScopedVariable introot("INTROOT", "/" + std::string(300, 'x'));
  ExpectThrowsWithDetails<std::runtime_error>(kPrefix + std::string("filesystem error: "), [] { BaseSimulator(); });
}

TEST(BaseSimulator, CopiesAreIndependentValues) {
  const CalibrationFolder folder;
  const BaseSimulator simulator;
  const BaseSimulator copy = simulator;  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_NE(copy.M2s().data(), simulator.M2s().data());
  EXPECT_EQ(copy.M2s(), simulator.M2s());
  static_assert(!std::is_polymorphic_v<BaseSimulator>);
}

}  // namespace
}  // namespace quen::basesim
