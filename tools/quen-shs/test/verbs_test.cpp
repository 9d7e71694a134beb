#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>

#include "testing/calibration.hpp"
#include "testing/environment.hpp"
#include "testing/fits_files.hpp"
#include "testing/python.hpp"
#include "testing/second_reader.hpp"
#include "tools/quen-shs/test/quen_shs.hpp"
#include "workbench/sensor/calibration.hpp"

// The verbs as a person or a script uses them, on a synthetic calibration. What they are made of has tests of its own.

namespace {

using quen::testing::BytesWithoutChecksums;
using quen::testing::ColumnReadByAstropy;
using quen::testing::ComplaintsOfFitsverify;
using quen::testing::ImageReadByAstropy;
using quen::testing::Outcome;
using quen::testing::QuenShs;
using quen::testing::TempDir;

class Verbs : public quen::testing::SensorToolTest {
 protected:
  /// An element of the JSON that a command prints, as Python shows it.
  std::string Json(const std::string& verb, const std::string& arguments, const std::string& element) {
    const Outcome outcome = quen::testing::Run(
        QUEN_SHS " " + verb + " " + folder_.Path() + " --json " + arguments +
        " | " QUEN_PYTHON " -c 'import json, sys; d = json.load(sys.stdin); print(" + element + ")'");
    EXPECT_EQ(outcome.err, "");
    return outcome.out;
  }
};

constexpr const char* kHint = "\nRun with --help for more information.";

// --- calibrate

TEST_F(Verbs, CalibrateTakesGeometryAndBasis) {
  const Outcome outcome = QuenShs(
      "calibrate --pitch 23 --size 21 --offset-x 4 --offset-y -6 --obscuration 0.2 --spider-angle 45 "
      "--spider-width 0.02 --basis karhunen-loeve " +
      File("other"));
  ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
  const auto x_low = ColumnReadByAstropy(File("other/data/shs_rois.fits"), "rois", "x_low");
  const auto y_low = ColumnReadByAstropy(File("other/data/shs_rois.fits"), "rois", "y_low");
  // 32 · 23 + 21 = 757 of 840 columns and 816 rows: 41 and 29 before the grid, and the offset.
  EXPECT_EQ(x_low[0], 45.0);
  EXPECT_EQ(y_low[0], 23.0);
  EXPECT_EQ(x_low[1], 68.0);
  EXPECT_EQ(quen::testing::KeywordReadByAstropy(File("other/data/CM.fits"), 0, "BASIS"), "Karhunen-Loeve (Kolmogorov)");
  EXPECT_EQ(QuenShs("check " + File("other")).exit_code, 0);
}

TEST_F(Verbs, CalibrateMeasures) {
  const Outcome outcome =
      QuenShs("calibrate --measured --engine weighted --poke-amplitude 0.5 --noise 20 --seed 3 " + File("other"));
  ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_EQ(quen::testing::KeywordReadByAstropy(File("other/data/M2S.fits"), 0, "METHOD"),
            "measured: weighted, 0.5 pixels, noise 20, seed 3");
  EXPECT_NE(BytesWithoutChecksums(File("other/data/M2S.fits")), BytesWithoutChecksums(File("data/M2S.fits")));
  EXPECT_EQ(QuenShs("check " + File("other")).exit_code, 0);
  EXPECT_EQ(QuenShs("loop --frames 30 " + File("other")).exit_code, 0);
}

TEST_F(Verbs, CalibrateSaysWhatIsWrong) {
  ExpectFailure("calibrate x --basis fourier", 2,
                "--basis: expected one of zernike, karhunen-loeve, found fourier" + std::string(kHint));
  ExpectFailure(
      "calibrate " + File("new") + " --pitch 26", 1,
      "quen-shs: the grid does not fit on the frame: its columns go from -8 to 847, the frame's from 0 to 839; change "
      "the pitch, the size or the offset");
  ExpectFailure("calibrate " + File("new") + " --obscuration 0.9", 1,
                "quen-shs: only 216 sub-apertures are lit, and 607 must be; choose a smaller obscuration or spider");
  EXPECT_FALSE(std::filesystem::exists(File("new")));
  const auto before = quen::testing::Bytes(File("data/CM.fits"));
  EXPECT_EQ(QuenShs("calibrate --measured " + folder_.Path()).exit_code, 1);
  EXPECT_EQ(quen::testing::Bytes(File("data/CM.fits")), before);
}

// --- frame

TEST_F(Verbs, FrameIsTheSimulatorsAndRepeatable) {
  Do("frame", "--shape tip:1.25 --noise 0");
  EXPECT_EQ(ComplaintsOfFitsverify(File("frame.fits")), "");
  EXPECT_EQ(quen::testing::DescribedByAstropy(File("frame.fits")), "0 image '' 16 840x816\n");
  // Sub-aperture 8 + 33 · 16 is used: its spot is 1.25 columns to the right of (227.5, 407.5).
  const double expected = 4096.0 * std::exp(-(0.75 * 0.75 + 0.5 * 0.5) / 8.0);
  const Outcome pixels =
      quen::testing::RunPython("from astropy.io import fits; d = fits.getdata(\"" + File("frame.fits") +
                               "\"); print(d[407, 228], d[407, 227] < d[407, 229])");
  EXPECT_EQ(pixels.out, std::to_string(static_cast<int>(expected)) + " True\n") << pixels.err;

  for (const char* const run : {"a.fits --seed 4", "b.fits --seed 4", "c.fits --seed 5"}) {
    Do("frame", "--noise 50 --output " + folder_.Path() + "/" + run);
  }
  EXPECT_EQ(BytesWithoutChecksums(File("a.fits")), BytesWithoutChecksums(File("b.fits")));
  EXPECT_NE(BytesWithoutChecksums(File("a.fits")), BytesWithoutChecksums(File("c.fits")));
}

TEST_F(Verbs, FrameTakesModesThroughTheMatrix) {
  Do("frame", "--modes 0=2,4=-1 --noise 0 --truth " + File("truth.fits"));
  const std::vector<double> m2s = ImageReadByAstropy(File("data/M2S.fits"));
  const std::vector<double> used = ColumnReadByAstropy(File("data/shs_rois.fits"), "rois_used", "is_used");
  const std::vector<double> x = ColumnReadByAstropy(File("truth.fits"), "slopes", "x");
  const std::vector<double> y = ColumnReadByAstropy(File("truth.fits"), "slopes", "y");
  std::size_t k = 0;
  for (std::size_t i = 0; i < 1089; ++i) {
    if (used[i] == 0.0) {
      ASSERT_EQ(x[i], 0.0);
      continue;
    }
    ASSERT_NEAR(y[i], 2.0 * m2s[0 + 52 * k] - m2s[4 + 52 * k], 1e-12);
    ASSERT_NEAR(x[i], 2.0 * m2s[0 + 52 * (607 + k)] - m2s[4 + 52 * (607 + k)], 1e-12);
    ++k;
  }
}

TEST_F(Verbs, FrameTakesDisplacementsFromAFile) {
  Do("frame", "--shape horizontal-coma:2 --truth " + File("truth.fits"));
  Do("frame", "--displacements " + File("truth.fits") + " --output " + File("again.fits"));
  EXPECT_EQ(BytesWithoutChecksums(File("again.fits")), BytesWithoutChecksums(File("frame.fits")));
  std::string lines;
  for (const double x : ColumnReadByAstropy(File("truth.fits"), "slopes", "x")) lines += std::to_string(x) + ",0\n";
  quen::testing::WriteText(File("d.csv"), lines);
  Do("frame", "--displacements " + File("d.csv"));
}

TEST_F(Verbs, FrameDrawsAndTellsItsFiles) {
  const std::string out = Do("frame", "--shape defocus:2 --png " + File("new/frame.png"));
  EXPECT_EQ(out, "longest displacement    2 pixels\nnoise                   10 (seed 1)\nwrote " + File("frame.fits") +
                     "\nwrote " + File("new/frame.png") + "\n");
  EXPECT_TRUE(std::filesystem::exists(File("new/frame.png")));
  EXPECT_EQ(Json("frame", "--seed 7", "d[\"seed\"], d[\"noise\"], d[\"longest_displacement\"], len(d[\"files\"])"),
            "7 10.0 0.0 1\n");
}

TEST_F(Verbs, FrameSaysWhatIsWrong) {
  ExpectFailure("frame x --shape dent:1", 2,
                "--shape: expected one of flat, tip, tilt, defocus, oblique-astigmatism, astigmatism, vertical-coma, "
                "horizontal-coma, vertical-trefoil, oblique-trefoil, spherical, found dent" +
                    std::string(kHint));
  ExpectFailure("frame x --modes 60=1", 2, "--modes: expected a mode from 0 to 51, found 60" + std::string(kHint));
  ExpectFailure("frame x --modes 1=1 --shape tip:1", 2,
                "--modes, --shape: expected one of the two, found both" + std::string(kHint));
  ExpectFailure("frame " + folder_.Path() + " --displacements " + File("none"), 1,
                "quen-shs: " + File("none") + ": cannot be read: No such file or directory");
  EXPECT_FALSE(std::filesystem::exists(File("frame.fits")));
  std::filesystem::create_directories(File("blocked/in_the_way"));
  EXPECT_EQ(QuenShs("frame " + folder_.Path() + " --output " + File("blocked")).exit_code, 1);
  EXPECT_EQ(quen::testing::EntriesBelow(File("blocked")), 1U);
}

// --- measure

TEST_F(Verbs, MeasureComparesWithTheTruth) {
  Do("frame", "--shape horizontal-coma:2 --noise 0 --truth " + File("truth.fits"));
  const std::string out = Do("measure", File("frame.fits") + " --engine gaussian-fit --truth " + File("truth.fits"));
  EXPECT_NE(out.find("engine                  gaussian-fit\n"), std::string::npos) << out;
  EXPECT_NE(out.find("at the limit            0 of 607 spots (12 pixels)\nerror x  "), std::string::npos);
  EXPECT_NE(out.find("\nwrote " + File("slopes.fits") + "\n"), std::string::npos);
  EXPECT_EQ(ComplaintsOfFitsverify(File("slopes.fits")), "");
  const auto x = ColumnReadByAstropy(File("slopes.fits"), "slopes", "x");
  const auto truth = ColumnReadByAstropy(File("truth.fits"), "slopes", "x");
  const auto used = ColumnReadByAstropy(File("data/shs_rois.fits"), "rois_used", "is_used");
  for (std::size_t i = 0; i < 1089; ++i) ASSERT_NEAR(x[i], used[i] == 0.0 ? 0.0 : truth[i], 1e-3);
  EXPECT_EQ(Json("measure", File("frame.fits") + " --engine gaussian-fit --truth " + File("truth.fits"),
                 "d[\"error_x\"][\"rms\"] < 1e-4, d[\"error_y\"][\"worst\"] < 1e-3, d[\"at_limit\"], d[\"engine\"]"),
            "True True 0 gaussian-fit\n");
}

TEST_F(Verbs, MeasureGivesErrorsAsMeasuredLessTrue) {
  Do("frame", "--noise 0 --output " + File("flat.fits") + " --truth " + File("flat_truth.fits"));
  Do("frame", "--noise 0 --shape tip:1");
  EXPECT_EQ(Json("measure", File("frame.fits") + " --truth " + File("flat_truth.fits"),
                 "round(d[\"error_x\"][\"bias\"], 2), abs(d[\"error_y\"][\"bias\"]) < 0.01"),
            "1.0 True\n");
}

TEST_F(Verbs, MeasureTakesAnInstrumentsUnsignedFrame) {
  Do("frame", "--shape tip:1 --noise 0");
  // As a camera's software writes it: unsigned by BZERO, with a background of 100.
  const Outcome made =
      quen::testing::RunPython("from astropy.io import fits; import numpy; d = fits.getdata(\"" + File("frame.fits") +
                               "\"); fits.writeto(\"" + File("camera.fits") + "\", (d + 100).astype(numpy.uint16))");
  ASSERT_EQ(made.exit_code, 0) << made.err;
  EXPECT_EQ(quen::testing::KeywordReadByAstropy(File("camera.fits"), 0, "BZERO"), "32768");
  Do("measure", File("frame.fits") + " --output " + File("a.fits"));
  Do("measure", File("camera.fits") + " --engine centre-of-gravity:background=100 --output " + File("b.fits"));
  const auto a = ColumnReadByAstropy(File("a.fits"), "slopes", "x");
  const auto b = ColumnReadByAstropy(File("b.fits"), "slopes", "x");
  for (std::size_t i = 0; i < 1089; ++i) ASSERT_NEAR(a[i], b[i], 1e-9);
}

TEST_F(Verbs, MeasureCutsAtItsLimitAndCountsIt) {
  Do("frame", "--shape tip:2 --noise 0");
  EXPECT_EQ(Json("measure", File("frame.fits") + " --limit 0.5", "d[\"at_limit\"], d[\"x\"][\"largest\"]"),
            "607 0.5\n");
}

TEST_F(Verbs, MeasureSaysWhatIsWrong) {
  quen::testing::WriteImage(File("small.fits"), SHORT_IMG, {10, 20}, {});
  ExpectFailure(
      "measure " + folder_.Path() + " " + File("small.fits"), 1,
      "quen-shs: " + File("small.fits") + ": expected a frame of 840 x 816 pixels (columns x rows), found 10 x 20");
  ExpectFailure("measure " + folder_.Path(), 2, "FRAME: expected a name, found none" + std::string(kHint));
  EXPECT_FALSE(std::filesystem::exists(File("slopes.fits")));
  ExpectFailure("measure " + folder_.Path() + " " + File("none.fits"), 1,
                "quen-shs: " + File("none.fits") + ": cannot be read: No such file or directory");
  Do("frame", "");
  ExpectFailure("measure " + folder_.Path() + " " + File("frame.fits") + " --truth " + File("frame.fits"), 1,
                "quen-shs: " + File("frame.fits") + ": expected a table \"slopes\", found none");
  ExpectFailure("measure " + folder_.Path() + " " + File("frame.fits") + " --output " + File("frame.fits/slopes.fits"),
                1, "quen-shs: cannot make " + File("frame.fits") + ": Not a directory");
}

// --- view

TEST_F(Verbs, ViewKnowsEveryFileOfOurs) {
  Do("frame", "--shape tip:1");
  Do("measure", File("frame.fits"));
  Do("loop", "--frames 10");
  Do("loop", "--frames 10 --sweep gain=0.2:0.6:0.2");
  Do("score", "--frames 1 --engine weighted --output " + File("scores.fits"));
  Done("detector --new " + File("camera.json"));
  const std::vector<std::pair<std::string, std::string>> files = {
      {"frame.fits", "frame"},        {"slopes.fits", "slopes"},         {"data/M2S.fits", "matrix"},
      {"data/CM.fits", "matrix"},     {"data/shs_rois.fits", "regions"}, {"loop/telemetry.fits", "telemetry"},
      {"loop/sweep.fits", "sweep"},   {"scores.fits", "scores"},         {"loop/frame.fits", "frame"},
      {"loop/slopes.fits", "slopes"}, {"camera_flat.fits", "map"},       {"camera_bad_pixels.fits", "map"}};
  for (const auto& [name, kind] : files) {
    const Outcome outcome = QuenShs("view --json " + File(name) + " --png " + File("picture.png"));
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_NE(outcome.out.find("\"kind\": \"" + kind + "\""), std::string::npos) << name << outcome.out;
    EXPECT_TRUE(std::filesystem::remove(File("picture.png"))) << name;
  }
}

TEST_F(Verbs, ViewDrawsOutlinesAndArrowsOnAFrame) {
  Do("frame", "--shape tip:1");
  Do("measure", File("frame.fits"));
  const auto picture = [&](const std::string& options) {
    EXPECT_EQ(QuenShs("view " + File("frame.fits") + " " + options).out, "wrote " + File("frame.png") + "\n");
    return quen::testing::Bytes(File("frame.png"));
  };
  const auto bare = picture("");
  const auto outlines = picture("--calibration " + folder_.Path());
  const auto arrows = picture("--slopes " + File("slopes.fits"));
  const auto zscale = picture("--stretch zscale");
  EXPECT_NE(bare, outlines);
  EXPECT_NE(outlines, arrows);
  EXPECT_NE(bare, zscale);
}

TEST_F(Verbs, ViewTakesThePlacesOfSlopesFromTheCalibrationThatAMatrixIsIn) {
  const auto viewed = [&](const std::string& matrix, const std::string& options = "") {
    const Outcome outcome = QuenShs("view " + File(matrix) + " --png " + File("m.png") + options);
    EXPECT_EQ(outcome.err, "");
    const std::string end = "\nwrote " + File("m.png") + "\n";
    EXPECT_TRUE(outcome.out.ends_with(end)) << outcome.out;
    return outcome.out.substr(0, outcome.out.find(end));
  };
  const std::string label = "regions                 ";
  EXPECT_EQ(viewed("data/M2S.fits"), label + File("data/shs_rois.fits"));
  EXPECT_EQ(viewed("data/CM.fits"), label + File("data/shs_rois.fits"));
  QuenShs("calibrate --pitch 20 --size 20 " + File("other"));
  const auto ours = quen::testing::Bytes(File("m.png"));
  EXPECT_EQ(viewed("data/CM.fits", " --calibration " + File("other")), label + File("other/data/shs_rois.fits"));
  EXPECT_NE(quen::testing::Bytes(File("m.png")), ours);
  std::filesystem::copy_file(File("data/CM.fits"), File("CM.fits"));
  EXPECT_EQ(viewed("CM.fits"), label + "a synthetic sensor");
  quen::testing::WriteText(File("shs_rois.fits"), "no regions");
  EXPECT_EQ(viewed("CM.fits"), label + "a synthetic sensor; " + File("shs_rois.fits") + " cannot be used");
  std::filesystem::remove(File("shs_rois.fits"));
  ASSERT_EQ(::mkfifo(File("shs_rois.fits").c_str(), 0600), 0);
  EXPECT_EQ(viewed("CM.fits"), label + "a synthetic sensor");
}

TEST_F(Verbs, ViewDrawsOverNoFileOfTheCalibration) {
  for (const char* const file : {"data/M2S.fits", "data/shs_rois.fits"}) {
    const auto before = quen::testing::Bytes(File(file));
    ExpectFailure("view " + File("data/M2S.fits") + " --png " + File(file), 1,
                  "quen-shs: cannot write " + File(file) + ": it is the same file as " + File(file) +
                      ", which is read; give the output another name");
    EXPECT_EQ(quen::testing::Bytes(File(file)), before);
  }
}

TEST_F(Verbs, ViewSaysWhatIsWrong) {
  quen::testing::WriteText(File("text"), "no FITS");
  ExpectFailure("view " + File("text"), 1,
                "quen-shs: " + File("text") + ": expected a FITS file, found something else");
  ExpectFailure("view " + File("none.fits"), 1,
                "quen-shs: " + File("none.fits") + ": cannot be read: No such file or directory");
  Do("frame", "");
  for (const char* const slopes : {"none.fits", "text", "frame.fits"}) {
    EXPECT_EQ(QuenShs("view " + File("frame.fits") + " --slopes " + File(slopes)).exit_code, 1) << slopes;
  }
  EXPECT_FALSE(std::filesystem::exists(File("frame.png")));
  std::filesystem::resize_file(File("frame.fits"), 5760);
  ExpectFailure("view " + File("frame.fits"), 1,
                "quen-shs: " + File("frame.fits") +
                    ": expected 1373760 bytes, as its header declares, found 5760; the file may be cut short");
  quen::testing::WriteImage(File("cube.fits"), SHORT_IMG, {4, 3, 2, 2}, {});
  ExpectFailure("view " + File("cube.fits"), 1,
                "quen-shs: " + File("cube.fits") +
                    ": expected a frame (16 bits), a cube of frames, a map of its pixels, a matrix (doubles), or a "
                    "table \"slopes\", "
                    "\"rois\", \"telemetry\", \"sweep\" or \"scores\"; found an image of 4 axes with BITPIX 16");
  ExpectFailure(
      "view " + File("data/M2S.fits") + " --stretch cube", 2,
      "--stretch: expected one of auto, log, zscale, percentile, sqrt, linear, found cube" + std::string(kHint));
}

TEST_F(Verbs, ViewRefusesWhatWouldDoNothing) {
  Do("frame", "");
  Do("measure", File("frame.fits"));
  const std::string matrix = File("data/M2S.fits");
  const std::string slopes = File("slopes.fits");
  ExpectFailure("view " + matrix + " --stretch log", 1,
                "quen-shs: --stretch: expected a frame, found matrix in " + matrix);
  ExpectFailure("view " + matrix + " --slopes " + slopes, 1,
                "quen-shs: --slopes: expected a frame, found matrix in " + matrix);
  ExpectFailure("view " + slopes + " --calibration " + folder_.Path(), 1,
                "quen-shs: --calibration: expected a frame, M2S or CM, found slopes in " + slopes);
  EXPECT_EQ(QuenShs("view " + matrix + " --calibration " + folder_.Path()).exit_code, 0);
}

TEST_F(Verbs, ViewRefusesFramesThatNobodyCouldSee) {
  quen::testing::WriteImage(File("line.fits"), SHORT_IMG, {100000, 1}, {});
  ExpectFailure("view " + File("line.fits"), 1,
                "quen-shs: " + File("line.fits") + ": expected 1 to 8000 pixels along either axis, found 100000 x 1");
}

TEST_F(Verbs, ViewDrawsALongDisturbance) {
  quen::testing::WriteImage(File("long.fits"), DOUBLE_IMG, {52, 40000}, {});
  EXPECT_EQ(QuenShs("view " + File("long.fits")).out, "wrote " + File("long.png") + "\n");
}

TEST_F(Verbs, ViewTitlesMayBeOfAnyBytes) {
  const std::string name = File("caf\xE9\x1B.fits");
  std::filesystem::copy_file(File("data/M2S.fits"), name);
  const Outcome outcome = QuenShs("view " + quen::testing::Quoted(name));
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out, "regions                 a synthetic sensor\nwrote " + File("caf??.png") + "\n");
  EXPECT_TRUE(std::filesystem::exists(File("caf\xE9\x1B.png")));
}

TEST_F(Verbs, FrameRefusesAShapeWithoutACircle) {
  quen::testing::Calibration calibration;
  calibration.rois["x_ref"][300] = std::nan("");
  calibration.Write(File("odd"));
  ExpectFailure(
      "frame " + File("odd") + " --shape defocus:2", 1,
      "quen-shs: the references of the used sub-apertures are at one point, or not finite: a shape needs a circle "
      "around them; 'quen-shs check' tells more of the calibration");
}

TEST(ViewVerb, AsksNobodyForLettersAndWritesNothingElse) {
  const TempDir folder;
  quen::testing::WriteImage(folder / "m.fits", DOUBLE_IMG, {2, 2}, {1.0, 2.0, 3.0, 4.0});
  std::filesystem::create_directory(folder / "home");
  const std::string view = " " + std::string(QUEN_SHS) + " view " + (folder / "m.fits");
  for (const std::string& environment :
       {"HOME=" + (folder / "home"), "XDG_CACHE_HOME=" + (folder / "home"), std::string("-u HOME"),
        std::string("HOME=/proc"), std::string("FONTCONFIG_FILE=/nonexistent"),
        std::string("FONTCONFIG_PATH=/nonexistent"), std::string("FC_DEBUG=1"), std::string("LC_ALL=xx_YY.what")}) {
    const Outcome outcome = quen::testing::Run(std::string("env ").append(environment).append(view));
    EXPECT_EQ(outcome.exit_code, 0) << environment;
    EXPECT_EQ(outcome.err, "") << environment;
    EXPECT_EQ(outcome.out, "wrote " + (folder / "m.png") + "\n") << environment;
  }
  EXPECT_EQ(quen::testing::EntriesBelow(folder / "home"), 0U);
}

// --- score

TEST_F(Verbs, ScoreWritesItsTable) {
  Do("score", "--frames 1 --engine weighted --engine windowed:half-width=4 --output " + File("scores.fits"));
  EXPECT_EQ(ComplaintsOfFitsverify(File("scores.fits")), "");
  const auto noises = ColumnReadByAstropy(File("scores.fits"), "scores", "noise");
  EXPECT_EQ(noises.size(), 20U);
  EXPECT_EQ(noises.front(), 1.0);
  EXPECT_EQ(noises.back(), 1000.0);
  const auto rms = ColumnReadByAstropy(File("scores.fits"), "scores", "rms_x");
  EXPECT_LT(rms[0], rms[18]);
  const Outcome names =
      quen::testing::RunPython("from astropy.io import fits; t = fits.getdata(\"" + File("scores.fits") +
                               "\", \"scores\"); print(t[\"engine\"][0], t[\"engine\"][1])");
  EXPECT_EQ(names.out, "weighted windowed:half-width=4\n");
}

TEST_F(Verbs, ScoreGivesItsTableAsJson) {
  EXPECT_EQ(Json("score", "--frames 1 --engine weighted --noise 0 --range 0",
                 "d[\"scores\"][0][\"engine\"], d[\"scores\"][0][\"x\"][\"gain\"], d[\"scores\"][0][\"failed\"], "
                 "d[\"least_rms\"] > 0"),
            "weighted None 0.0 True\n");  // a gain that is not a number is null
}

// --- loop

TEST_F(Verbs, LoopTakesADisturbanceFromAFile) {
  Do("loop", "--frames 30 --seed 3");
  const auto disturbance = ColumnReadByAstropy(File("loop/telemetry.fits"), "telemetry", "disturbance");
  Do("loop", "--frames 20 --disturbance " + File("loop/telemetry.fits") + " --folder " + File("replay"));
  const auto again = ColumnReadByAstropy(File("replay/telemetry.fits"), "telemetry", "disturbance");
  ASSERT_EQ(again.size(), 20U * 52U);
  EXPECT_TRUE(std::equal(again.begin(), again.end(), disturbance.begin()));
  EXPECT_EQ(quen::testing::KeywordReadByAstropy(File("replay/telemetry.fits"), 1, "DISTURB"),
            File("loop/telemetry.fits"));
  ExpectFailure(
      "loop " + folder_.Path() + " --disturbance " + File("loop/telemetry.fits") + " --folder " + File("longer"), 1,
      "quen-shs: " + File("loop/telemetry.fits") +
          ": expected a disturbance of 1000 frames at least, found 30; give --frames 30");
}

TEST_F(Verbs, LoopRefusesADisturbanceBeyondAllSense) {
  std::vector<double> modes(520, 1.0);
  modes[53] = 1e308;
  quen::testing::WriteImage(File("modes.fits"), DOUBLE_IMG, {52, 10}, modes);
  ExpectFailure("loop " + folder_.Path() + " --frames 10 --disturbance " + File("modes.fits"), 1,
                "quen-shs: " + File("modes.fits") +
                    ": expected modes up to 1e+100 radians, found 1e+308 in frame 1, mode 1 (counted from 0)");
}

TEST_F(Verbs, FrameRefusesDisplacementsThatAreNone) {
  constexpr std::size_t kColumns = 52;
  std::vector<double> matrix(kColumns * 1214, 0.0);
  matrix[kColumns * 607] = std::numeric_limits<double>::quiet_NaN();  // of the first used sub-aperture's x, mode 0
  quen::testing::WriteImage(File("data/M2S.fits"), DOUBLE_IMG, {52, 1214}, matrix);
  const auto used = ColumnReadByAstropy(File("data/shs_rois.fits"), "rois_used", "is_used");
  const auto first = std::ranges::find(used, 1.0) - used.begin();
  ExpectFailure("frame " + folder_.Path() + " --modes 0=1", 1,
                "quen-shs: expected finite displacements, found (nan, 0) pixels for sub-aperture " +
                    std::to_string(first) + " (counted from 0); is M2S finite?");
  EXPECT_FALSE(std::filesystem::exists(File("frame.fits")));
}

TEST_F(Verbs, LoopSweepsItsGain) {
  const std::string out = Do("loop", "--frames 30 --delay 2 --sweep gain=0.2:2:0.6 --folder " + File("s"));
  EXPECT_EQ(out.find("    gain   residual, rad RMS\n     0.2   "), 0U) << out;
  EXPECT_NE(out.find("\n       2   diverged in frame "), std::string::npos) << out;
  EXPECT_NE(out.find("\nbest gain               0.2 (residual "), std::string::npos) << out;
  EXPECT_EQ(quen::testing::EntriesBelow(File("s")), 2U);
  EXPECT_EQ(Json("loop", "--frames 30 --delay 2 --sweep gain=0.2:2:0.6",
                 "d[\"best_gain\"], [p[\"diverged\"] for p in d[\"sweep\"]][-1], len(d[\"sweep\"])"),
            "0.2 True 4\n");
  const Outcome lost = QuenShs("loop " + folder_.Path() + " --frames 200 --delay 5 --sweep gain=1.9:2:0.1");
  EXPECT_EQ(lost.exit_code, 1);
  EXPECT_EQ(lost.err, "quen-shs: the loop diverges with every gain; try lower ones, or a shorter delay\n");
  ExpectFailure("loop x --sweep gain=1:2", 2,
                "--sweep: expected gain=FIRST:LAST:STEP, found gain=1:2" + std::string(kHint));
  ExpectFailure("loop x --sweep gain=1:2:1 --gain 1", 2,
                "--gain, --sweep: expected one of the two, found both" + std::string(kHint));
}

TEST_F(Verbs, LoopGivesItsResultAsJson) {
  EXPECT_EQ(Json("loop", "--frames 20 --leak 0.01 --seed 9",
                 "d[\"frames\"], d[\"leak\"], d[\"seed\"], d[\"residual_after\"] < d[\"disturbance_after\"], "
                 "d[\"diverged\"], len(d[\"files\"])"),
            "20 0.01 9 True False 4\n");
}

}  // namespace
