#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numeric>
#include <sstream>

#include "testing/environment.hpp"
#include "testing/fits_files.hpp"
#include "testing/python.hpp"
#include "testing/values.hpp"
#include "workbench/engines/score_file.hpp"
#include "workbench/pictures/errors_picture.hpp"
#include "workbench/pictures/field_picture.hpp"
#include "workbench/pictures/frame_picture.hpp"
#include "workbench/pictures/loop_picture.hpp"
#include "workbench/pictures/matrix_picture.hpp"
#include "workbench/pictures/points_picture.hpp"
#include "workbench/pictures/src/canvas.hpp"
#include "workbench/pictures/src/plot.hpp"
#include "workbench/pictures/src/typeface.hpp"
#include "workbench/pictures/stretch.hpp"
#include "workbench/pictures/sweep_picture.hpp"
#include "workbench/pictures/test/looks_like.hpp"
#include "workbench/pictures/transfer_picture.hpp"
#include "workbench/sensor/calibration.hpp"
#include "workbench/sensor/calibration_lookup.hpp"
#include "workbench/sensor/shapes.hpp"

// Each picture against one that was looked at.

namespace quen::workbench {
namespace {

using quen::testing::Difference;
using quen::testing::ExpectDrawn;
using quen::testing::ExpectLooksLike;
using quen::testing::ExtremePairs;
using quen::testing::kExtremes;
using quen::testing::kNan;
using quen::testing::kTolerance;
using quen::testing::Shades;
using quen::testing::TempDir;

// --- What is drawn

class Pictures : public ::testing::Test {
 protected:
  Pictures() { WriteCalibration(folder_.Path(), false); }

  [[nodiscard]] shssim::ShsSimulator Load() const { return LoadSimulator(folder_.Path()); }

  /// Coma on the synthetic sensor: no symmetry by which x and y, or signs, could be mistaken.
  [[nodiscard]] static Overlay Coma(const shssim::ShsSimulator& simulator) {
    Displacements displacements = Shape({"horizontal-coma", 2.0}, simulator);
    const Displacements tilt = Shape({"tilt", 0.6}, simulator);
    for (std::size_t i = 0; i < 1089; ++i) displacements.y[i] += tilt.y[i];
    return {simulator.Rois(), simulator.RoisUsed(), displacements};
  }

  TempDir folder_;
};

std::vector<FrameRecord> Records() {
  std::vector<FrameRecord> records;
  for (int frame = 0; frame < 80; ++frame) {
    Eigen::VectorXd disturbance(52);
    for (Eigen::Index mode = 0; mode < 52; ++mode) {
      const double m = static_cast<double>(mode);
      disturbance(mode) = (3.0 + std::sin(0.1 * frame + m)) / (1.0 + m);
    }
    const Eigen::VectorXd correction = disturbance * (1.0 - std::exp(-0.1 * frame));
    records.push_back({disturbance, correction, disturbance - correction});
  }
  return records;
}

TEST_F(Pictures, Frame) {
  auto simulator = Load();
  const Overlay overlay = Coma(simulator);
  simulator.ComputeFrame(overlay.displacements->x, overlay.displacements->y, 0.0, std::nullopt);
  const Frame frame = {840, 816, simulator.Frame()};
  ExpectLooksLike("frame", [&] { return DrawFrame(frame, SpotStretch(), overlay, "A frame"); });
  ExpectLooksLike("frame_alone", [&] { return DrawFrame(frame, LogarithmicStretch(frame), std::nullopt, "A frame"); });
}

TEST_F(Pictures, Field) {
  const auto simulator = Load();
  std::vector<double> flux(1089);
  for (std::size_t i = 0; i < flux.size(); ++i) flux[i] = 1000.0 + static_cast<double>(i);
  flux[500] = std::numeric_limits<double>::quiet_NaN();
  ExpectLooksLike("field", [&] { return DrawField(Coma(simulator), flux); });
  ExpectLooksLike("field_without_light", [&] { return DrawField(Coma(simulator), {}); });
}

TEST_F(Pictures, Regions) {
  const auto simulator = Load();
  const Overlay overlay = {simulator.Rois(), simulator.RoisUsed(), std::nullopt};
  ExpectLooksLike("regions", [&] { return DrawRegions(overlay); });
}

TEST_F(Pictures, Loop) {
  auto simulator = Load();
  const Displacements shape = Shape({"defocus", 1.0}, simulator);
  simulator.ComputeFrame(shape.x, shape.y, 0.0, std::nullopt);
  simulator.ComputeSlopes(*MakeEngine("weighted"), 12.0, std::nullopt);
  ExpectLooksLike("loop", [&] { return DrawLoop({840, 816, simulator.Frame()}, simulator, Records()); });
}

TEST(Picture, Telemetry) {
  ExpectLooksLike("telemetry", [] { return DrawTelemetry(Records()); });
}

TEST(Picture, TelemetryOfALoopThatIsLost) {
  std::vector<FrameRecord> records = Records();
  records.back().residual(0) = std::numeric_limits<double>::infinity();
  EXPECT_TRUE(DrawTelemetry(records).starts_with("\x89PNG"));
}

TEST(Picture, TelemetryOfFramesThatAreNotFiniteLeavesThemOut) {
  std::vector<FrameRecord> records = Records();
  records[20].residual.setConstant(std::numeric_limits<double>::quiet_NaN());
  records[21].disturbance(3) = -std::numeric_limits<double>::infinity();
  ExpectLooksLike("telemetry_not_finite", [&] { return DrawTelemetry(records); });
}

TEST(Picture, TelemetryOfManyFrames) {
  std::vector<FrameRecord> records;
  for (int frame = 0; frame < 40000; ++frame) {
    const double size = frame < 20000 ? 1.0 : 3.0 + std::sin(frame);
    records.push_back(
        {Eigen::VectorXd::Constant(2, 5.0), Eigen::VectorXd::Zero(2), Eigen::VectorXd::Constant(2, size)});
  }
  ExpectLooksLike("telemetry_many", [&] { return DrawTelemetry(records); });
}

TEST(Picture, MatrixOfManyRowsShowsTheLargestOfEachGroup) {
  Matrix matrix = Matrix::Zero(40000, 4);
  matrix.col(0).setConstant(0.2);
  for (Eigen::Index row = 1; row < 40000; row += 5) matrix(row, 0) = -2.0;  // one of each five
  matrix.block(10000, 2, 10000, 1).setConstant(1.0);
  matrix(30000, 3) = std::numeric_limits<double>::infinity();
  ExpectLooksLike("matrix_long", [&] { return DrawMatrix(matrix, "A matrix"); });
}

TEST(Picture, MatrixOfAnyNumbers) {
  for (const auto& [one, other] : ExtremePairs()) {
    Matrix matrix = Matrix::Constant(3, 2, one);
    matrix(1, 1) = other;
    ExpectDrawn([&] { return DrawMatrix(matrix, ""); });
  }
}

TEST(Picture, SweepOfAnyNumbers) {
  for (const auto& [one, other] : ExtremePairs()) {
    const std::vector<SweepPoint> points = {
        {one, other, 1.0, 10}, {0.5, one, other, 10}, {other, 1.0, one, 10}, {0.7, other, 2.0, 10}};
    ExpectDrawn([&] { return DrawSweep(points); });
    const std::vector<SweepPoint> single = {{one, one, one, 1}};
    if (one == other) ExpectDrawn([&] { return DrawSweep(single); });
  }
}

TEST(Picture, TelemetryOfAnyNumbers) {
  for (const auto& [one, other] : ExtremePairs()) {
    std::vector<FrameRecord> records = {Records().front()};
    records.front().disturbance.setConstant(one);
    records.front().residual(7) = other;
    ExpectDrawn([&] { return DrawTelemetry(records); });
  }
}

/// Curves without scores.
ErrorCurves CurvesAlong(const std::vector<double>& noises, double range) {
  ErrorCurves curves;
  curves.range = range;
  curves.places = noises;
  for (const double noise : noises) curves.least_rms.push_back(centroiders::ErrorBound(noise));
  return curves;
}

TEST(Picture, ErrorsOfAnyNumbers) {
  constexpr double kLargest = std::numeric_limits<double>::max();
  for (const auto& [least, most] :
       {std::pair(5e-324, 1e308), {1.0, kLargest}, {1e308, kLargest}, {1.0, std::nextafter(1.0, 2.0)}}) {
    ErrorCurves curves = CurvesAlong({least, most}, kLargest);
    for (const double noise : curves.places) {
      std::vector<NamedScore> scores;
      for (const double value : kExtremes) {
        scores.push_back({"engine", {}});
        scores.back().score.x.rms = scores.back().score.y.rms = noise < most ? value : -value;
      }
      curves.scores.push_back(scores);
    }
    ExpectDrawn([&] { return DrawErrors(curves); });
  }
}

TEST(Picture, ErrorsAtManyNoises) {
  std::vector<double> noises(5000);
  std::iota(noises.begin(), noises.end(), 1.0);
  ErrorCurves curves = CurvesAlong(noises, 2.0);
  for (int k = 1; k <= 5000; ++k) {
    curves.scores.push_back({{"one", {}}});
    curves.scores.back().front().score.x.rms = k < 2500 ? 1e-4 * k : std::numeric_limits<double>::quiet_NaN();
  }
  ExpectLooksLike("errors_many", [&] { return DrawErrors(curves); });
}

TEST_F(Pictures, FieldOfAnyNumbers) {
  const auto simulator = Load();
  for (const auto& [one, other] : ExtremePairs()) {
    Overlay overlay = Coma(simulator);
    std::ranges::fill(overlay.displacements->x, one);
    overlay.displacements->y[500] = other;
    std::vector<double> flux(1089, one);
    flux[500] = other;
    ExpectDrawn([&] { return DrawField(overlay, flux); });
  }
}

TEST_F(Pictures, RegionsWithoutReferences) {
  const auto simulator = Load();
  Overlay overlay = {simulator.Rois(), simulator.RoisUsed(), std::nullopt};
  for (std::size_t i = 300; i < 700; ++i) overlay.rois[i].x_ref = std::numeric_limits<double>::quiet_NaN();
  ExpectLooksLike("regions_without_references", [&] { return DrawRegions(overlay); });
}

TEST_F(Pictures, FieldTellsHowManyHaveNoArrow) {
  const auto simulator = Load();
  Overlay overlay = Coma(simulator);
  EXPECT_EQ(ArrowLegend(overlay), "the longest arrow is 1.84 px, red: cut");
  const std::vector<std::size_t> used = UsedIndices(overlay.used);
  overlay.displacements->x[used[3]] = std::numeric_limits<double>::infinity();
  overlay.displacements->y[used[4]] = std::numeric_limits<double>::quiet_NaN();
  overlay.rois[used[5]].y_ref = std::numeric_limits<double>::quiet_NaN();
  overlay.displacements->x[0] = std::numeric_limits<double>::quiet_NaN();  // is not used
  EXPECT_NE(ArrowLegend(overlay).find(" px, red: cut (3 not finite)"), std::string::npos) << ArrowLegend(overlay);
  std::ranges::fill(overlay.displacements->x, 1e308);
  std::ranges::fill(overlay.displacements->y, 0.0);
  EXPECT_EQ(ArrowLegend(overlay), "the longest arrow is 1e+308 px, red: cut (1 not finite)");
  std::ranges::fill(overlay.displacements->x, 5e-324);
  EXPECT_GT(ArrowMagnification(overlay), 0.0);
  EXPECT_TRUE(std::isfinite(ArrowMagnification(overlay)));
  std::ranges::fill(overlay.displacements->x, 0.0);
  EXPECT_EQ(ArrowLegend(overlay), "all zeros (1 not finite)");
  EXPECT_EQ(ArrowMagnification(overlay), 1.0);
}

TEST_F(Pictures, FieldWithoutDisplacementsHasRings) {
  const auto simulator = Load();
  const Overlay overlay = OverlayOf(simulator);
  ExpectLooksLike("field_of_zeros", [&] { return DrawField(overlay, {}); });
}

TEST_F(Pictures, FieldOfFewLongDisplacementsShowsTheShortOnes) {
  const auto simulator = Load();
  Overlay overlay = Coma(simulator);
  std::ranges::fill(overlay.displacements->x, 1e-3);
  std::ranges::fill(overlay.displacements->y, 0.0);
  const std::vector<std::size_t> used = UsedIndices(overlay.used);
  for (std::size_t k = 0; k < 30; ++k) overlay.displacements->y[used[20 * k]] = 10.0;
  EXPECT_EQ(ArrowLegend(overlay), "the longest arrow is 0.001 px, red: cut");
  ExpectLooksLike("field_uneven", [&] { return DrawField(overlay, {}); });
}

TEST(Picture, TextOfAnyBytesIsDrawn) {
  const Matrix matrix = Matrix::Identity(3, 3);
  const auto drawn = [&](const std::string& title) { return DrawMatrix(matrix, title); };
  EXPECT_EQ(drawn("caf\xE9\x1B\n"), drawn("caf???"));
  EXPECT_NE(drawn("caf\xC3\xA9"), drawn("caf?"));
}

TEST(Picture, TooLargeIsASentence) {
  const Frame frame = {40000, 1, std::vector<std::uint16_t>(40000)};
  try {
    DrawFrame(frame, SpotStretch(), std::nullopt, "");
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(),
                 "cannot draw a picture of 40080 x 85 pixels: invalid value (typically too big) for the size of the "
                 "input (surface, pattern, etc.)");
  }
  EXPECT_THROW(const Image image(std::size_t{1} << 40U, 1), std::runtime_error);
}

TEST(Picture, ThatCouldNotBeDrawnIsNotWritten) {
  const Canvas canvas(100, 100);
  cairo_restore(canvas.Cairo());  // nothing was saved
  EXPECT_THROW(static_cast<void>(canvas.Png()), std::runtime_error);
}

TEST(Typeface, IsThereWithoutAnyFont) {
  const FontFace built_in = LoadTypeface(std::array{"/nowhere", "/etc/passwd"});
  const Canvas canvas(200, 50);
  cairo_set_font_face(canvas.Cairo(), built_in.get());
  WriteBefore(canvas.Cairo(), 150.0, 30.0, "Letters");
  EXPECT_EQ(cairo_status(canvas.Cairo()), CAIRO_STATUS_SUCCESS);
  EXPECT_EQ(cairo_font_face_get_type(built_in.get()), CAIRO_FONT_TYPE_TOY);
  double x = 0.0;
  double y = 0.0;
  cairo_get_current_point(canvas.Cairo(), &x, &y);
  EXPECT_NEAR(x, 150.0, 1.0) << "letters take no room";
}

TEST(Typeface, IsDejaVuWhereThatIsInstalled) { EXPECT_EQ(cairo_font_face_get_type(Typeface()), CAIRO_FONT_TYPE_FT); }

TEST(Picture, Matrix) {
  Matrix matrix(20, 60);
  for (Eigen::Index row = 0; row < 20; ++row) {
    for (Eigen::Index column = 0; column < 60; ++column) {
      matrix(row, column) = static_cast<double>(column - 20) * static_cast<double>(row);
    }
  }
  matrix(3, 4) = std::numeric_limits<double>::quiet_NaN();
  ExpectLooksLike("matrix", [&] { return DrawMatrix(matrix, "A matrix"); });
  ExpectLooksLike("matrix_upright", [&] { return DrawMatrix(matrix.transpose(), "A matrix"); });
}

TEST(Picture, TextGoesOnInTheNextLine) {
  const Canvas canvas(10, 10);
  const auto wrapped = [&](const std::string& text, double width) { return Wrapped(canvas.Cairo(), text, width); };
  EXPECT_EQ(wrapped("one two three", 1000.0), (std::vector<std::string>{"one two three"}));
  EXPECT_EQ(wrapped("one two three", 70.0), (std::vector<std::string>{"one two", "three"}));
  EXPECT_EQ(wrapped("one two three", 1.0), (std::vector<std::string>{"one", "two", "three"}));
  EXPECT_EQ(wrapped("", 1.0), std::vector<std::string>());
  EXPECT_EQ(Shortened(canvas.Cairo(), "one two three", 1000.0), "one two three");
  EXPECT_EQ(Shortened(canvas.Cairo(), "one two three", 70.0), "one tw…");
}

// --- Colours

/// L, a and b of a colour as the eye has it: whole, without the receptors for red, or without those for green
/// (G. M. Machado, M. M. Oliveira, L. A. F. Fernandes, IEEE Trans. Vis. Comput. Graph. 15, 1291 (2009)).
std::array<Eigen::Vector3d, 3> SeenBy(const Colour& colour) {
  Eigen::Matrix3d without_red;
  without_red << 0.152286, 1.052583, -0.204868, 0.114503, 0.786281, 0.099216, -0.003882, -0.048116, 1.051998;
  Eigen::Matrix3d without_green;
  without_green << 0.367322, 0.860646, -0.227968, 0.280085, 0.672501, 0.047413, -0.011820, 0.042940, 0.968881;
  Eigen::Matrix3d to_xyz;  // over those of white
  to_xyz << 0.4339, 0.3763, 0.1899, 0.2126, 0.7152, 0.0722, 0.0177, 0.1095, 0.8728;
  const auto linear = [](double value) {
    return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
  };
  const Eigen::Vector3d light(linear(colour.red), linear(colour.green), linear(colour.blue));
  std::array<Eigen::Vector3d, 3> seen;
  for (std::size_t eye = 0;
       const Eigen::Matrix3d& kind : {Eigen::Matrix3d::Identity().eval(), without_red, without_green}) {
    const Eigen::Vector3d roots = (to_xyz * (kind * light).cwiseMax(0.0).cwiseMin(1.0)).unaryExpr([](double t) {
      return t > 0.008856 ? std::cbrt(t) : 7.787 * t + 16.0 / 116.0;
    });
    seen.at(eye++) = {116.0 * roots.y() - 16.0, 500.0 * (roots.x() - roots.y()), 200.0 * (roots.y() - roots.z())};
  }
  return seen;
}

TEST(Picture, CurvesAreToldApartByAnyEye) {
  constexpr double kClearly = 15.0;  // of L, a and b; one is just seen of colours that touch
  std::vector<Colour> colours(kCurves.begin(), kCurves.end());
  colours.push_back(kInk);
  colours.push_back(kPaper);
  for (std::size_t i = 0; i < colours.size(); ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      const auto one = SeenBy(colours[i]);
      const auto other = SeenBy(colours[j]);
      for (std::size_t eye = 0; eye < 3; ++eye) {
        EXPECT_GT((one.at(eye) - other.at(eye)).norm(), kClearly) << i << " and " << j << ", eye " << eye;
      }
    }
  }
}

TEST(Picture, Sweep) {
  const std::vector<SweepPoint> points = {{0.2, 3.0, 5.0, 100},
                                          {0.4, 1.0, 5.0, 100},
                                          {0.6, 1.5, 5.0, 100},
                                          {0.8, std::numeric_limits<double>::infinity(), 4.0, 30}};
  ExpectLooksLike("sweep", [&] { return DrawSweep(points); });
}

TEST(Picture, Errors) {
  ErrorCurves curves = CurvesAlong({1.0, 10.0, 100.0}, 2.0);
  for (const double noise : curves.places) {
    NamedScore one = {"one", {}};
    NamedScore other = {"other", {}};
    one.score.x.rms = one.score.y.rms = 2e-4 * noise;
    other.score.x.rms = other.score.y.rms = 3e-3 * std::sqrt(noise);
    curves.scores.push_back({one, other});
  }
  ExpectLooksLike("errors", [&] { return DrawErrors(curves); });
}

TEST(Picture, ErrorsAgainstLight) {
  ErrorCurves curves;
  curves.abscissa = Abscissa::kLight;
  curves.range = 2.0;
  for (const double photons : {100.0, 1e4, 1e6}) {
    curves.places.push_back(photons);
    curves.least_rms.push_back(2.0 / std::sqrt(photons));
    NamedScore one = {"one", {}};
    one.score.x.rms = one.score.y.rms = 3.0 / std::sqrt(photons) + 0.01;
    curves.scores.push_back({one});
  }
  ExpectLooksLike("errors_light", [&] { return DrawErrors(curves); });
}

/// A curve has a point that all its runs have failed at, and there are more names than fit beside a panel.
TEST(Picture, PointsWithErrors) {
  std::vector<CurveOfPoints> curves = {{"one", {{0.2, 1.0, 0.1}, {0.4, 0.5, 0.05}, {0.6, kNan, kNan}}}};
  curves.reserve(20);
  for (int k = 1; k < 20; ++k) curves.push_back({"other", {{0.2, 1.0 + 0.1 * k, 0.02 * k}, {0.6, 2.0, kNan}}});
  ExpectLooksLike("points", [&] { return DrawPoints({{"first", curves}, {"second", curves}}); });
}

TEST(Picture, PhotonTransfer) {
  PhotonTransfer transfer;
  transfer.dark = {0.0, 100.0, 6.25};
  transfer.gain = 0.5;
  for (int doublings = 0; doublings < 19; ++doublings) {
    const double mean = std::ldexp(0.25, doublings);
    transfer.points.push_back({mean / 0.5, std::min(mean, 65435.0), mean < 65435.0 ? 6.25 + 0.5 * mean : 0.0});
  }
  ExpectLooksLike("transfer", [&] { return DrawTransfer(transfer, "camera.json"); });
}

TEST(Picture, ComparisonNoticesWhatChanged) {
  const Shades white = {100, 100, std::vector<double>(30000, 255.0)};
  Shades line = white;
  for (std::size_t k = 0; k < 120; ++k) line.values[k] = 0.0;
  EXPECT_EQ(Difference(white, white), 0.0);
  EXPECT_GT(Difference(white, line), kTolerance);
  EXPECT_EQ(Difference(white, {}), 1.0);
}

// --- Shades of grey

/// Limits of astropy's zscale of the pixels as signed numbers.
std::vector<double> LimitsByAstropy(const std::vector<std::uint16_t>& pixels) {
  std::string list;
  for (const std::uint16_t pixel : pixels) list += std::to_string(static_cast<std::int16_t>(pixel)) + "\n";
  const TempDir folder;
  testing::WriteText(folder / "pixels", list);
  const testing::Outcome outcome = testing::RunPython(
      "import numpy; from astropy.visualization import ZScaleInterval; "
      "print(*ZScaleInterval().get_limits(numpy.loadtxt(" +
      testing::PythonText(folder / "pixels") + ")))");
  std::istringstream stream(outcome.out);
  std::vector<double> limits(2);
  stream >> limits[0] >> limits[1];
  return limits;
}

TEST_F(Pictures, ZScaleIsThatOfAstropy) {
  auto simulator = Load();
  const std::vector<double> zeros(1089, 0.0);
  for (const double noise : {10.0, 1000.0}) {
    simulator.ComputeFrame(zeros, zeros, noise, std::nullopt);
    const Stretch stretch = ZScaleStretch({840, 816, simulator.Frame()});
    const std::vector<double> limits = LimitsByAstropy(simulator.Frame());
    EXPECT_NEAR(stretch.black, limits[0], 1e-6 * std::abs(limits[1] - limits[0])) << noise;
    EXPECT_NEAR(stretch.white, limits[1], 1e-6 * std::abs(limits[1] - limits[0])) << noise;
  }
}

std::vector<double> Map() {
  std::vector<double> map(std::size_t{840} * 816);
  for (std::size_t k = 0; k < map.size(); ++k) map[k] = 0.9 + 0.2 * static_cast<double>(k) / 685440.0;
  return map;
}

TEST(Picture, MapIsDrawnFromItsLowestValueToItsHighest) {
  std::vector<double> map = Map();
  for (std::ptrdiff_t row = 100; row < 140; ++row) std::fill_n(map.begin() + 840 * row + 600, 60, kNan);
  ExpectLooksLike("map", [&] { return DrawMap(map, kFrameWidth, "flat.fits"); });
}

TEST(Picture, MapOfAFewPixelsShowsThem) {
  std::vector<double> map(std::size_t{840} * 816, 0.0);
  for (std::ptrdiff_t row = 100; row < 140; ++row) std::fill_n(map.begin() + 840 * row + 20, 60, 2.0);
  map.back() = 3.0;
  ExpectLooksLike("map_of_states", [&] { return DrawMap(map, kFrameWidth, "states.fits"); });
}

TEST(Picture, MapOfAnyNumbers) {
  for (const auto& [first, second] : ExtremePairs()) {
    std::vector<double> map(std::size_t{840} * 816, first);
    map[1000] = second;
    ExpectDrawn([&] { return DrawMap(map, kFrameWidth, "map.fits"); });
  }
}

TEST(Stretch, ZScaleOfFewOrEqualPixelsIsTheirRange) {
  const Stretch few = ZScaleStretch({3, 1, {3, 1, 65535}});
  EXPECT_EQ(few.black, -1.0);
  EXPECT_EQ(few.white, 3.0);
  const Stretch even = ZScaleStretch({10, 10, std::vector<std::uint16_t>(100, 7)});
  EXPECT_EQ(even.Shade(7.0), 0.0);
  EXPECT_EQ(even.Shade(8.0), 1.0);
}

TEST(Stretch, GoesFromBlackToWhite) {
  const Frame frame = {2, 2, {0, 65535, 1000, 100}};
  for (const std::string& word : StretchWords()) {
    const Stretch stretch = StretchByWord(word, frame);
    EXPECT_EQ(stretch.Shade(-5000.0), 0.0) << word;
    EXPECT_EQ(stretch.Shade(5000.0), 1.0) << word;
  }
  EXPECT_EQ(StretchByWord("linear", frame).Shade(250.0), 0.25);
  EXPECT_EQ(StretchByWord("sqrt", frame).Shade(250.0), 0.5);
  EXPECT_NEAR(StretchByWord("log", frame).Shade(250.0), std::log(251.0) / std::log(1001.0), 1e-12);
}

TEST(Stretch, FollowsWhatAFrameIs) {
  const Frame drawn = {2, 2, {0, 20, 1000, 100}};
  const Frame counts = {2, 2, {0, 20, 1000, 100}, true};
  EXPECT_EQ(StretchOfDrawn(drawn).white, SpotStretch().white);
  EXPECT_EQ(StretchOfDrawn(counts).white, PercentileStretch(counts).white);
  EXPECT_EQ(ResolvedStretch("auto", drawn), "log");
  EXPECT_EQ(ResolvedStretch("auto", counts), "percentile");
  EXPECT_EQ(ResolvedStretch("sqrt", counts), "sqrt");
}

TEST(Stretch, PercentilesLeaveHotPixelsOut) {
  Frame frame = {1, 1000, std::vector<std::uint16_t>(1000), true};
  for (std::size_t k = 0; k < 1000; ++k) frame.pixels[k] = static_cast<std::uint16_t>(60000 - 7 * k);
  frame.pixels[500] = 65535;
  const Stretch stretch = PercentileStretch(frame);
  EXPECT_EQ(stretch.black, 60000.0 - 7.0 * 750.0);
  EXPECT_EQ(stretch.white, 60000.0 - 7.0 * 4.0);
  const Stretch even = PercentileStretch({10, 10, std::vector<std::uint16_t>(100, 7), true});
  EXPECT_EQ(even.Shade(7.0), 0.0);
  EXPECT_EQ(even.Shade(8.0), 1.0);
}

TEST(Stretch, CountsOfADetectorAreNotNegative) {
  const Frame frame = {2, 2, {0, 65535, 1000, 100}, true};
  EXPECT_EQ(StretchByWord("linear", frame).Shade(65535.0), 1.0);
  EXPECT_NEAR(StretchByWord("linear", frame).Shade(1000.0), 1000.0 / 65535.0, 1e-12);
}

}  // namespace
}  // namespace quen::workbench
