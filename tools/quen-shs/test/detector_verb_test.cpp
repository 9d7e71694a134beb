#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

#include "testing/environment.hpp"
#include "testing/fits_files.hpp"
#include "testing/second_reader.hpp"
#include "tools/quen-shs/test/quen_shs.hpp"

// Frames of a detector, from its description to the loop.

namespace {

using quen::testing::BytesWithoutChecksums;
using quen::testing::ColumnReadByAstropy;
using quen::testing::ImageReadByAstropy;
using quen::testing::KeywordReadByAstropy;
using quen::testing::Outcome;
using quen::testing::QuenShs;
using quen::testing::WriteText;

class DetectorVerb : public quen::testing::ToolTest {
 protected:
  /// @param reason  after "quen-shs: "
  static void ExpectRefusal(const std::string& arguments, const std::string& reason) {
    ExpectFailure(arguments, 1, "quen-shs: " + reason);
  }
};

TEST_F(DetectorVerb, WritesADescriptionThatItMeasures) {
  const std::string camera = File("new/camera.json");
  EXPECT_EQ(Done("detector --new " + camera + " --read-noise 4 --pedestal 200 --non-uniformity 0.02 --hot-pixels 1000"),
            "wrote " + camera + "\nwrote " + File("new/camera_flat.fits") + "\nwrote " +
                File("new/camera_bad_pixels.fits") + "\nwrote " + File("new/camera_bad_pixel_levels.fits") + "\n");
  for (const char* const map : {"flat", "bad_pixels", "bad_pixel_levels"}) {
    EXPECT_EQ(quen::testing::ComplaintsOfFitsverify(File(std::string("new/camera_") + map + ".fits")), "");
  }
  double squares = 0.0;
  for (const double response : ImageReadByAstropy(File("new/camera_flat.fits"))) {
    squares += (response - 1.0) * (response - 1.0);
  }
  EXPECT_NEAR(std::sqrt(squares / 685440.0), 0.02, 0.0002);
  double hot = 0.0;
  for (const double state : ImageReadByAstropy(File("new/camera_bad_pixels.fits"))) hot += state == 2.0 ? 1.0 : 0.0;
  EXPECT_NEAR(hot, 685.0, 130.0);  // five standard deviations

  const std::string told = Done("detector " + camera + " --png " + File("transfer.png"));
  EXPECT_NE(told.find("gain                    0.5 counts per photo-electron (described: 0.5)\n"), std::string::npos)
      << told;
  EXPECT_NE(told.find("(described: 4 of reading)\n"), std::string::npos) << told;
  EXPECT_NE(told.find("wrote " + File("transfer.png") + "\n"), std::string::npos) << told;
}

TEST_F(DetectorVerb, ReplacesNothingUnlessForced) {
  const std::string camera = File("camera.json");
  WriteText(File("camera_flat.fits"), "mine");
  ExpectRefusal("detector --new " + camera,
                File("camera_flat.fits") + ": is there already; give --force to replace it");
  EXPECT_FALSE(std::filesystem::exists(camera));
  EXPECT_EQ(std::filesystem::file_size(File("camera_flat.fits")), 4U);
  Done("detector --new --force " + camera);
  EXPECT_GT(std::filesystem::file_size(File("camera_flat.fits")), 5000000U);
  const std::string before = quen::testing::Run("cat " + camera).out;
  ExpectRefusal("detector " + camera + " --png " + camera, "cannot write " + camera + ": it is the same file as " +
                                                               camera +
                                                               ", which is read; give the output another name");
  EXPECT_EQ(quen::testing::Run("cat " + camera).out, before);
}

/// The first number of a name in JSON.
double NumberIn(const std::string& json, const std::string& name) {
  const std::string key = "\"" + name + "\": ";
  return std::stod(json.substr(json.find(key) + key.size()));
}

TEST_F(DetectorVerb, EnginesMayKnowItsMaps) {
  const std::string sensor = File("sensor");
  const std::string camera = File("camera.json");
  const std::string with_camera = sensor + " --detector " + camera;
  Done("calibrate " + sensor);
  Done("detector --new " + camera + " --hot-pixels 3000");
  const std::string score = "score --json --frames 1 --engine gaussian-fit:pedestal=101 " + with_camera;
  const std::string unaware = Done(score);
  const std::string aware = Done(score + " --use-maps");
  EXPECT_GT(NumberIn(unaware, "failed"), 0.3);
  EXPECT_EQ(NumberIn(aware, "failed"), 0.0);
  EXPECT_LT(NumberIn(aware, "rms"), 0.25 * NumberIn(unaware, "rms"));
  EXPECT_NE(aware.find("\"engines_know_maps\": true"), std::string::npos) << aware;
  EXPECT_EQ(unaware.find("engines_know_maps"), std::string::npos) << unaware;

  Done(score + " --output " + File("unaware.fits"));
  Done(score + " --use-maps --output " + File("aware.fits"));
  const auto failed = [&](const std::string& file) { return ColumnReadByAstropy(File(file), "scores", "failed"); };
  EXPECT_GT(failed("unaware.fits").at(5), 0.3);
  EXPECT_EQ(failed("aware.fits").at(5), 0.0);

  const std::string told = Done("loop --frames 10 --engine weighted:pedestal=101 --use-maps " + with_camera);
  EXPECT_NE(told.find(", maps known to the engines"), std::string::npos) << told;
  EXPECT_EQ(KeywordReadByAstropy(File("sensor/loop/frame.fits"), 0, "ENGMAPS"), "known");
  Done("calibrate --measured --engine weighted:pedestal=101 --use-maps --detector " + camera + " " + File("measured"));
  const std::string method = KeywordReadByAstropy(File("measured/data/M2S.fits"), 0, "METHOD");
  EXPECT_NE(method.find(", maps known to the engines,"), std::string::npos) << method;

  WriteText(File("plain.json"), "{}");
  ExpectRefusal("score " + sensor + " --use-maps", "--use-maps: expected a detector with maps, found no --detector");
  ExpectRefusal("score " + sensor + " --use-maps --detector " + File("plain.json"),
                "--use-maps: expected a detector with maps, found " + File("plain.json") + " without any");
}

TEST_F(DetectorVerb, SaysWhatIsWrong) {
  ExpectRefusal("detector " + File("none.json"), File("none.json") + ": cannot be read: No such file or directory");
  WriteText(File("camera.json"), "{\"read_noise\": -3}");
  ExpectRefusal("frame x --detector " + File("camera.json"),
                "no calibration in x: x/data/M2S.fits is missing; 'quen-shs calibrate x' makes a synthetic one");
  ExpectRefusal("detector " + File("camera.json"),
                File("camera.json") + ": read_noise must be from 0 to 1000000, found -3");
  WriteText(File("camera.json"), "{\"photon_noise\": false}");
  ExpectRefusal(
      "detector " + File("camera.json"),
      File("camera.json") +
          ": the variance of its frames does not grow with the light, so that its gain cannot be measured; is "
          "photon_noise false, or gain far below one count per electron?");
  const Outcome both = QuenShs("frame x --noise 1 --read-noise 2");
  EXPECT_EQ(both.exit_code, 2);
  EXPECT_EQ(both.err,
            "--noise, --read-noise: expected one of the two, found both\nRun with --help for more information.\n");
}

TEST_F(DetectorVerb, IsNamedAsJsonCan) {
  ExpectRefusal("detector --new " + File("a\xff.json"),
                "a?_flat.fits: expected a name in UTF-8, which is all that JSON can hold");
}

class FramesOfDetector : public DetectorVerb {
 protected:
  FramesOfDetector() { Done("calibrate " + File("sensor")); }

  /// Runs "quen-shs VERB sensor ARGUMENTS".
  std::string OnSensor(const std::string& verb, const std::string& arguments) const {
    return Done(verb + " " + File("sensor") + " " + arguments);
  }
};

TEST_F(FramesOfDetector, AreCountsAndTellTheirTruth) {
  const std::string options = "--photons 5000 --read-noise 3 --pedestal 100 --seed 8 ";
  EXPECT_NE(OnSensor("frame", options).find("detector                5000 electrons a spot, read noise 3 (seed 8)\n"),
            std::string::npos);
  const std::string frame = File("sensor/frame.fits");
  EXPECT_EQ(quen::testing::ComplaintsOfFitsverify(frame), "");
  EXPECT_EQ(KeywordReadByAstropy(frame, 0, "BZERO"), "32768");
  EXPECT_EQ(KeywordReadByAstropy(frame, 0, "DETREAD"), "3.0");
  EXPECT_EQ(KeywordReadByAstropy(frame, 0, "SEED"), "8");
  const std::vector<double> pixels = ImageReadByAstropy(frame);
  double light = 0.0;
  for (const double pixel : pixels) light += pixel - 100.0;
  EXPECT_NEAR(light / 1089.0, 5000.0, 0.01 * 5000.0);
  OnSensor("frame", options + "--output " + File("again.fits"));
  EXPECT_EQ(BytesWithoutChecksums(File("again.fits")), BytesWithoutChecksums(frame));
  OnSensor("measure", frame + " --engine centre-of-gravity:background=100");
  Done("view " + frame);
}

TEST_F(FramesOfDetector, StandOverWhatADescriptionSays) {
  WriteText(File("camera.json"), R"({"offset": 500, "photon_noise": false, "electrons_per_unit": 1, "bits": 14})");
  OnSensor("frame", "--detector " + File("camera.json") + " --pedestal 300");
  const std::vector<double> pixels = ImageReadByAstropy(File("sensor/frame.fits"));
  EXPECT_EQ(pixels[0], 300.0);
  EXPECT_EQ(KeywordReadByAstropy(File("sensor/frame.fits"), 0, "DETBITS"), "14");
  ExpectRefusal("frame " + File("sensor") + " --detector " + File("camera.json") + " --output " + File("camera.json"),
                "cannot write " + File("camera.json") + ": it is the same file as " + File("camera.json") +
                    ", which is read; give the output another name");
}

TEST_F(FramesOfDetector, AreReadAsUnsigned) {
  const std::string bright = "--photons 1e6 --frames 10 --engine gaussian-fit";
  OnSensor("loop", bright + " --folder " + File("one"));
  OnSensor("loop", bright + ":pixels=unsigned --folder " + File("other"));
  EXPECT_EQ(BytesWithoutChecksums(File("one/slopes.fits")), BytesWithoutChecksums(File("other/slopes.fits")));
  const std::string told = OnSensor("score", "--photons 1e6 --frames 1 --engine gaussian-fit");
  EXPECT_NE(told.find("|   0.0 % |"), std::string::npos) << told;  // have failed
}

TEST_F(FramesOfDetector, CloseTheLoop) {
  const std::string told = OnSensor(
      "loop", "--frames 40 --photons 20000 --read-noise 3 --pedestal 100 --engine centre-of-gravity:background=100");
  EXPECT_NE(told.find("(gain 0.5, delay 1, 2e+04 electrons a spot, read noise 3, D/r0 20, seed 1)\n"),
            std::string::npos)
      << told;
  const std::string telemetry = File("sensor/loop/telemetry.fits");
  EXPECT_EQ(quen::testing::ComplaintsOfFitsverify(telemetry), "");
  EXPECT_EQ(KeywordReadByAstropy(telemetry, 1, "DETREAD"), "3.0");
  EXPECT_EQ(KeywordReadByAstropy(telemetry, 1, "GAIN"), "0.5");
  EXPECT_EQ(KeywordReadByAstropy(File("sensor/loop/frame.fits"), 0, "BZERO"), "32768");
}

TEST_F(FramesOfDetector, AreWarnedOfAPedestalThatAnEngineTakesForLight) {
  const std::string camera = " --photons 20000 --pedestal 100 ";
  const auto warning = [](const std::string& engine) {
    return "\nwarning: pixels between the spots have 100 counts, together 2.9 times the light of the spots, which " +
           engine + " takes for light: give it the option pedestal=100 or subtract=border\n";
  };
  const std::string loop = "--frames 10" + camera;
  const std::string sweep = "--sweep gain=0.1:0.2:0.1 --frames 10" + camera;
  for (const std::string& arguments : {loop, sweep}) {
    const std::string told = OnSensor("loop", arguments);
    EXPECT_NE(told.find(warning("centre-of-gravity")), std::string::npos) << told;
    EXPECT_EQ(told.find("warning"), told.rfind("warning")) << told;
    const std::string aware = OnSensor("loop", arguments + "--engine weighted:pedestal=100");
    EXPECT_EQ(aware.find("warning"), std::string::npos) << aware;
  }
  EXPECT_NE(OnSensor("loop", loop + "--json").find("\"pedestal\": {\n    \"counts\": 100.0,"), std::string::npos);
  const std::string poked = Done("calibrate " + File("poked") + " --measured --engine weighted" + camera);
  EXPECT_EQ(poked.find("warning"), poked.rfind("warning")) << poked;
  EXPECT_NE(("\n" + poked).find(warning("weighted")), std::string::npos) << poked;
  EXPECT_EQ(OnSensor("loop", "--frames 10").find("warning"), std::string::npos);
}

TEST_F(FramesOfDetector, WhoseSpotsAreNotFoundAreCountedInASweepToo) {
  const std::string dim = "--frames 10 --photons 200 --engine maximum-likelihood --json --folder " + File("o");
  const double alone = NumberIn(OnSensor("loop", dim + " --gain 0.2"), "lost_spots");
  EXPECT_GT(alone, 0.0);
  const std::string sweep = " --sweep gain=0.2:0.4:0.2";
  EXPECT_EQ(NumberIn(OnSensor("loop", dim + sweep), "lost_spots"), alone);
  const std::vector<double> lost = ColumnReadByAstropy(File("o/sweep.fits"), "sweep", "lost_spots");
  ASSERT_EQ(lost.size(), 2U);
  EXPECT_EQ(lost[0], alone);
  const std::string told =
      OnSensor("loop", "--frames 10 --photons 200 --engine maximum-likelihood --folder " + File("o") + sweep);
  EXPECT_NE(told.find(fmt::format("; spots not found: {:.0f} of 6070, which say nothing of the modes\n", alone)),
            std::string::npos)
      << told;
  EXPECT_EQ(OnSensor("loop", "--frames 10" + sweep).find("not found"), std::string::npos);
}

TEST_F(FramesOfDetector, EveryFileTellsTheDetectorAndTheSeed) {
  const std::string camera =
      File("a_camera_of_so_long_a_name_that_the_names_of_its_maps_do_not_fit_into_one_card.json");
  Done("detector --new --seed 5 --hot-pixels 200 " + camera);
  const std::string levels = camera.substr(0, camera.size() - 5) + "_bad_pixel_levels.fits";
  EXPECT_EQ(KeywordReadByAstropy(levels, 0, "SEED"), "5");
  EXPECT_EQ(KeywordReadByAstropy(levels, 0, "HOTPIX"), "200.0");
  EXPECT_EQ(quen::testing::ComplaintsOfFitsverify(levels), "");
  EXPECT_EQ(KeywordReadByAstropy(camera.substr(0, camera.size() - 5) + "_flat.fits", 0, "SEED"), "5");
  const std::string exposure = " --detector " + camera + " --read-noise 7 --seed 9 ";
  OnSensor("frame", exposure + "--truth " + File("truth.fits"));
  OnSensor("measure", File("sensor/frame.fits") + " --engine weighted:pedestal=101 --output " + File("measured.fits"));
  OnSensor("loop", exposure + "--frames 10 --engine weighted:pedestal=101 --folder " + File("loop"));
  Done("calibrate " + File("poked") + " --measured --engine weighted:pedestal=101" + exposure);
  for (const auto& [name, hdu] : std::vector<std::pair<std::string, int>>{{"truth.fits", 1},
                                                                          {"measured.fits", 3},
                                                                          {"loop/slopes.fits", 3},
                                                                          {"loop/telemetry.fits", 1},
                                                                          {"loop/frame.fits", 0},
                                                                          {"poked/data/M2S.fits", 0},
                                                                          {"poked/data/CM.fits", 0}}) {
    EXPECT_EQ(KeywordReadByAstropy(File(name), hdu, "DETREAD"), "7.0") << name;
    EXPECT_EQ(KeywordReadByAstropy(File(name), hdu, "DETBITS"), "16") << name;
    EXPECT_EQ(KeywordReadByAstropy(File(name), hdu, "SEED"), "9") << name;
    EXPECT_EQ(File(KeywordReadByAstropy(File(name), hdu, "DETLEVEL")), levels) << name;
  }
}

TEST_F(FramesOfDetector, MeasureACalibration) {
  const std::string options = " --photons 1e5 --read-noise 3 --pedestal 100 --engine centre-of-gravity:background=100";
  Done("calibrate " + File("measured") + " --measured" + options);
  EXPECT_EQ(KeywordReadByAstropy(File("measured/data/M2S.fits"), 0, "METHOD"),
            "measured: centre-of-gravity:background=100, 1 pixels, 1e+05 electrons a spot, read noise 3, seed 1");
  EXPECT_EQ(QuenShs("check " + File("measured")).exit_code, 0);
}

TEST_F(FramesOfDetector, ScoreEnginesAgainstLight) {
  const std::string told = OnSensor("score", "--frames 1 --photons 3000 --engine centre-of-gravity --output " +
                                                 File("s.fits") + " --png " + File("s.png"));
  EXPECT_EQ(told.find("3000 electrons a spot, read noise 0, displacements within 2 pixels, 1 frames, seed 1; least "
                      "possible RMS 0.0369 pixels\n"),
            0U)
      << told;
  EXPECT_EQ(quen::testing::ComplaintsOfFitsverify(File("s.fits")), "");
  EXPECT_EQ(ColumnReadByAstropy(File("s.fits"), "scores", "photons").back(), 1e6);
  EXPECT_NEAR(ColumnReadByAstropy(File("s.fits"), "scores", "least_rms").back(), 2.0 / 1000.0, 1e-5);
  Done("view " + File("s.fits") + " --png " + File("again.png"));
  EXPECT_EQ(quen::testing::Run("cmp " + File("s.png") + " " + File("again.png")).exit_code, 0);
}

}  // namespace
