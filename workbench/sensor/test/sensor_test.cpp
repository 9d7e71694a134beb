#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <numeric>

#include "testing/environment.hpp"
#include "testing/exceptions.hpp"
#include "testing/second_reader.hpp"
#include "workbench/sensor/calibration.hpp"
#include "workbench/sensor/calibration_lookup.hpp"
#include "workbench/sensor/displacements.hpp"
#include "workbench/sensor/mode_list.hpp"
#include "workbench/sensor/poke.hpp"
#include "workbench/sensor/shapes.hpp"

namespace quen::workbench {
namespace {

using quen::testing::ExpectThrows;
using quen::testing::TempDir;

/// On a synthetic calibration.
class Sensor : public ::testing::Test {
 protected:
  Sensor() { WriteCalibration(folder_.Path(), false); }

  [[nodiscard]] Camera Load() const { return LoadSimulator<Camera>(folder_.Path()); }

  TempDir folder_;
};

// --- Displacements

TEST(UsedIndices, AreThoseOfTheFlagsUpToThe607th) {
  std::vector<std::uint8_t> flags(1089, 1);
  flags[0] = 0;
  flags[5] = 7;  // any but 0
  const auto used = UsedIndices(flags);
  ASSERT_EQ(used.size(), 607U);
  EXPECT_EQ(used.front(), 1U);
  EXPECT_EQ(used[4], 5U);
  EXPECT_EQ(used.back(), 607U);
  EXPECT_EQ(UsedIndices({0, 1, 1}), (std::vector<std::size_t>{1, 2}));
  EXPECT_EQ(UsedIndices(std::vector<std::uint8_t>(2000, 0)).size(), 0U);
}

TEST(SetUsedDisplacements, TakesTheYBlockFirst) {
  Eigen::VectorXd slopes = Eigen::VectorXd::LinSpaced(1214, 0.0, 1213.0);
  Displacements displacements;
  SetUsedDisplacements(slopes, {3, 10}, displacements);
  EXPECT_EQ(displacements.y[3], 0.0);
  EXPECT_EQ(displacements.y[10], 1.0);
  EXPECT_EQ(displacements.x[3], 607.0);
  EXPECT_EQ(displacements.x[10], 608.0);
  EXPECT_EQ(displacements.x[4], 0.0);
}

// --- Lists of modes

TEST(ModeList, SetsTheModesItNames) {
  const Eigen::VectorXd modes = ParseModes("0=1.5,51=-2e-1, 3 = 4");
  EXPECT_EQ(modes.size(), 52);
  EXPECT_EQ(modes(0), 1.5);
  EXPECT_EQ(modes(51), -0.2);
  EXPECT_EQ(modes(3), 4.0);
  EXPECT_EQ(modes.cwiseAbs().sum(), 5.7);
}

TEST(ModeList, SaysWhatIsWrong) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"1", "expected MODE=RADIANS, found \"1\""},         {"a=1", "expected MODE=RADIANS, found \"a=1\""},
      {"1=b", "expected MODE=RADIANS, found \"1=b\""},     {"1.5=1", "expected MODE=RADIANS, found \"1.5=1\""},
      {"1=inf", "expected MODE=RADIANS, found \"1=inf\""}, {"1=2,,2=3", "expected MODE=RADIANS, found \"\""},
      {"52=1", "expected a mode from 0 to 51, found 52"},  {"-1=1", "expected a mode from 0 to 51, found -1"},
      {"1=2,1=3", "expected mode 1 once, found it twice"}};
  for (const auto& [text, reason] : cases) {
    ExpectThrows<std::invalid_argument>(reason, [&list = text] { ParseModes(list); });
  }
}

// --- Shapes

TEST(NamedShape, SaysWhatIsWrong) {
  ExpectThrows<std::invalid_argument>("expected defocus:PIXELS, found defocus", [] { ParseShape("defocus"); });
  ExpectThrows<std::invalid_argument>("expected tip:PIXELS, found tip:far", [] { ParseShape("tip:far"); });
  EXPECT_EQ(testing::TextOfThrown<std::invalid_argument>([] {
              ParseShape("dent:1");
            }).find("expected one of flat, tip, tilt, defocus, oblique-astigmatism"),
            0U);
}

TEST_F(Sensor, ShapesAreTheirWavefrontsGradients) {
  const Camera camera = Load();
  const auto used = UsedIndices(camera.RoisUsed());
  const auto shape = [&](const char* text) { return Shape(ParseShape(text), camera); };
  const Displacements tip = shape("tip:1.5");
  const Displacements tilt = shape("tilt:-0.5");
  const Displacements defocus = shape("defocus:2");
  const Displacements astigmatism = shape("astigmatism:2");
  double centre_x = 0.0;
  double centre_y = 0.0;
  for (const std::size_t i : used) {
    centre_x += camera.Rois()[i].x_ref / 607.0;
    centre_y += camera.Rois()[i].y_ref / 607.0;
  }
  double radius = 0.0;
  for (const std::size_t i : used) {
    radius = std::max(radius, std::hypot(camera.Rois()[i].x_ref - centre_x, camera.Rois()[i].y_ref - centre_y));
  }
  for (const std::size_t i : used) {
    const double x = (camera.Rois()[i].x_ref - centre_x) / radius;
    const double y = (camera.Rois()[i].y_ref - centre_y) / radius;
    ASSERT_NEAR(tip.x[i], 1.5, 1e-15);
    ASSERT_EQ(tip.y[i], 0.0);
    ASSERT_EQ(tilt.x[i], 0.0);
    ASSERT_NEAR(tilt.y[i], -0.5, 1e-15);
    ASSERT_NEAR(defocus.x[i], 2.0 * x, 1e-12);
    ASSERT_NEAR(defocus.y[i], 2.0 * y, 1e-12);
    ASSERT_NEAR(astigmatism.x[i], 2.0 * x, 1e-12);
    ASSERT_NEAR(astigmatism.y[i], -2.0 * y, 1e-12);
  }
  const Displacements flat = shape("flat:3");
  EXPECT_EQ(flat.x, std::vector<double>(1089, 0.0));
}

TEST_F(Sensor, LongestDisplacementOfAShapeIsAsAsked) {
  const Camera camera = Load();
  for (const std::string& name : ShapeNames()) {
    if (name == "flat") continue;
    const Displacements shape = Shape({name, 3.0}, camera);
    double longest = 0.0;
    for (std::size_t i = 0; i < 1089; ++i) {
      longest = std::max(longest, std::hypot(shape.x[i], shape.y[i]));
      if (camera.RoisUsed()[i] == 0) {
        ASSERT_EQ(shape.x[i], 0.0);
        ASSERT_EQ(shape.y[i], 0.0);
      }
    }
    EXPECT_NEAR(longest, 3.0, 1e-12) << name;
  }
}

// --- Measured matrices

TEST_F(Sensor, MeasuredMatrixIsTheComputedOne) {
  Camera camera = Load();
  const Eigen::Map<const Matrix> computed(camera.M2s().data(), 1214, 52);
  int frames = 0;
  const Matrix measured =
      Measured(camera, MakeCalibration(), {.engine = "weighted", .amplitude = 1.0}, [&] { ++frames; }).m2s;
  EXPECT_EQ(frames, kPokeFrames);
  for (Eigen::Index mode = 0; mode < 52; ++mode) {
    const double largest = computed.col(mode).cwiseAbs().maxCoeff();
    EXPECT_LT((measured.col(mode) - computed.col(mode)).cwiseAbs().maxCoeff(), 2e-3 * largest) << mode;
  }
}

TEST_F(Sensor, ModesArePushedBeforeTheyArePulled) {
  Camera camera = Load();
  std::vector<double> tip;  // mean displacement along x in each frame; mode 0 is tip
  Measured(camera, MakeCalibration(), {.amplitude = 1.0}, [&] {
    const std::vector<double>& x = camera.XSlopesUsed();
    tip.push_back(std::accumulate(x.begin(), x.end(), 0.0) / 607.0);
  });
  EXPECT_NEAR(tip[0], 1.0, 0.01);
  EXPECT_NEAR(tip[1], -1.0, 0.01);
  EXPECT_NEAR(tip[2], 0.0, 0.01);
}

TEST_F(Sensor, MeasuredMatrixScattersWithTheNoiseOfItsSeed) {
  Camera camera = Load();
  const Calibration made = MakeCalibration();
  const auto measured = [&](double noise, std::uint32_t seed) {
    const PokeOptions options = {.engine = "weighted", .amplitude = 0.5, .exposure = {.noise = noise, .seed = seed}};
    return Measured(camera, made, options, [] {}).m2s;
  };
  const Matrix still = measured(0.0, 1);
  const Matrix noisy = measured(100.0, 1);
  EXPECT_EQ(noisy, measured(100.0, 1));
  EXPECT_NE(noisy, measured(100.0, 2));
  EXPECT_NE(noisy, still);
}

// --- What is needed of a calibration

TEST_F(Sensor, FlagsThatEndTooEarlyAreRefused) {
  Calibration calibration = MakeCalibration();
  calibration.used.resize(500);
  WriteCalibration(folder_.Path(), true, calibration);
  const auto set = std::ranges::count(calibration.used, 1);
  ExpectThrows<std::runtime_error>("the calibration in " + folder_.Path() + " has 500 usage flags, " +
                                       std::to_string(set) + " of them set; expected 1089 and 607; 'quen-shs check " +
                                       folder_.Path() + "' tells more",
                                   [&] { static_cast<void>(Load()); });
}

TEST_F(Sensor, HeadersTellGeometryBasisAndOrigin) {
  const Geometry geometry = {
      .pitch = 23.5, .size = 21, .offset_x = 2.5, .obscuration = 0.3, .spider_angle = 45.0, .spider_width = 0.02};
  WriteCalibration(folder_.Path(), true, MakeCalibration(geometry, KarhunenLoeveBasis()));
  const auto key = [&](const char* file, int hdu, const char* name) {
    return testing::KeywordReadByAstropy(folder_ / file, hdu, name);
  };
  EXPECT_EQ(key("data/M2S.fits", 0, "BASIS"), "Karhunen-Loeve (Kolmogorov)");
  EXPECT_EQ(key("data/M2S.fits", 0, "METHOD"), "mean gradients");
  EXPECT_EQ(key("data/shs_rois.fits", 1, "PITCH"), "23.5");
  EXPECT_EQ(key("data/shs_rois.fits", 1, "REGION"), "21");
  EXPECT_EQ(key("data/shs_rois.fits", 1, "OFFSETX"), "2.5");
  EXPECT_EQ(key("data/shs_rois.fits", 1, "OBSCUR"), "0.3");
  EXPECT_EQ(key("data/shs_rois.fits", 1, "SPIDANG"), "45.0");
  EXPECT_EQ(key("data/shs_rois.fits", 1, "SPIDWID"), "0.02");
  for (const char* const name : kCalibrationFiles) {
    EXPECT_EQ(testing::ComplaintsOfFitsverify(folder_ / name), "");
  }
  const Camera camera = Load();
  EXPECT_EQ(camera.Rois()[0].width, 21);
}

}  // namespace
}  // namespace quen::workbench
