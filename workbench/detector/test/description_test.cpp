#include "workbench/detector/description.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <csignal>

#include "testing/environment.hpp"
#include "testing/exceptions.hpp"
#include "testing/fits_files.hpp"
#include "testing/second_reader.hpp"
#include "workbench/detector/map_file.hpp"
#include "workbench/detector/photon_transfer.hpp"
#include "workbench/fits/interruption.hpp"
#include "workbench/fits/memory_fits.hpp"

// Detectors as users describe them.

namespace quen::workbench {
namespace {

using quen::detector::DetectorConfig;
using quen::detector::kPixels;
using quen::detector::PixelState;
using quen::testing::ExpectThrows;
using quen::testing::TempDir;
using quen::testing::WriteImage;
using quen::testing::WriteText;

class Description : public ::testing::Test {
 protected:
  [[nodiscard]] std::string File(const std::string& name) const { return folder_ / name; }

  DetectorDescription Read(const std::string& text) const {
    WriteText(File("camera.json"), text);
    return ReadDetector(File("camera.json"));
  }

  /// @param message  after the file's name
  void ExpectRefused(const std::string& text, const std::string& message) const {
    SCOPED_TRACE(text);
    ExpectThrows<std::runtime_error>(File("camera.json") + ": " + message, [&] { Read(text); });
  }

  TempDir folder_;
};

TEST_F(Description, OfNothingIsADetectorWithoutNoise) {
  const DetectorDescription detector = Read("{}");
  EXPECT_EQ(detector.config.electrons_per_unit, 1.0);
  EXPECT_EQ(detector.config.read_noise, 0.0);
  EXPECT_EQ(detector.config.full_well, std::nullopt);
  EXPECT_TRUE(detector.config.photon_noise);
  EXPECT_TRUE(detector.maps.empty());
  EXPECT_EQ(detector.files.size(), 1U);
}

TEST_F(Description, SaysEachParameter) {
  const DetectorConfig config =
      Read(R"({"electrons_per_unit": 0.25, "background": 2, "dark": 0.5, "photon_noise": false, "em_gain": 300,
               "read_noise": 40, "full_well": 8e4, "gain": 0.125, "offset": -20, "bits": 14}  // of ours)")
          .config;
  EXPECT_EQ(config.electrons_per_unit, 0.25);
  EXPECT_EQ(config.background, 2.0);
  EXPECT_EQ(config.dark, 0.5);
  EXPECT_FALSE(config.photon_noise);
  EXPECT_EQ(config.em_gain, 300.0);
  EXPECT_EQ(config.read_noise, 40.0);
  EXPECT_EQ(config.full_well, 8e4);
  EXPECT_EQ(config.gain, 0.125);
  EXPECT_EQ(config.offset, -20.0);
  EXPECT_EQ(config.bits, 14);
}

TEST_F(Description, FindsItsMapsBesideIt) {
  std::vector<double> flat(kPixels, 1.0);
  flat[840 * 2 + 5] = 0.5;
  std::vector<PixelState> states(kPixels, PixelState::kGood);
  states[7] = PixelState::kHot;
  WriteText(File("flat.fits"), MapFile(flat, "response"));
  WriteText(File("states.fits"), PixelStateFile(states));
  WriteImage(File("levels.fits"), FLOAT_IMG, {840, 816}, std::vector<double>(kPixels, 2.5));
  WriteImage(File("dark.fits"), SHORT_IMG, {840, 816}, std::vector<double>(kPixels, 3.0));
  WriteImage(File("offset.fits"), DOUBLE_IMG, {840, 816}, std::vector<double>(kPixels, -4.5));
  const DetectorDescription detector =
      Read(R"({"flat_map": "flat.fits", "dark_map": "dark.fits", "offset_map": "offset.fits",
               "bad_pixels": "states.fits", "bad_pixel_levels": "levels.fits"})");
  EXPECT_EQ(detector.config.flat_map, flat);
  EXPECT_EQ(detector.config.dark_map.back(), 3.0);
  EXPECT_EQ(detector.config.offset_map.back(), -4.5);
  EXPECT_EQ(detector.config.bad_pixels, states);
  EXPECT_EQ(detector.config.bad_pixel_levels[7], 2.5);
  ASSERT_EQ(detector.maps.size(), 5U);
  EXPECT_EQ(detector.maps[0].member, "flat_map");
  EXPECT_EQ(detector.maps[0].file, "flat.fits");
  EXPECT_EQ(detector.files.size(), 6U);
}

TEST_F(Description, FromAStreamHasItsMapsInTheCurrentFolder) {
  WriteText(File("flat.fits"), MapFile(std::vector<double>(kPixels, 0.25), "response"));
  WriteText(File("camera.json"), R"({"flat_map": "flat.fits"})");
  std::array<int, 2> pipe_ends = {};
  ASSERT_EQ(pipe2(pipe_ends.data(), O_CLOEXEC), 0);
  ASSERT_EQ(write(pipe_ends[1], R"({"flat_map": "flat.fits"})", 25), 25);
  close(pipe_ends[1]);
  const testing::ScopedCurrentDirectory here(folder_.Path());
  for (const int stream : {open("camera.json", O_RDONLY | O_CLOEXEC), pipe_ends[0]}) {
    EXPECT_EQ(ReadDetector("/dev/fd/" + std::to_string(stream)).config.flat_map.front(), 0.25);
    close(stream);
  }
}

TEST_F(Description, InFullIsReadBack) {
  DetectorConfig config;
  config.electrons_per_unit = 0.1;
  config.photon_noise = false;
  config.full_well = 12345.678;
  config.bits = 12;
  const std::string text = DescribedInFull(config, {});
  EXPECT_NE(text.find("\"electrons_per_unit\": 0.1,"), std::string::npos) << text;
  EXPECT_NE(text.find("// e-: mean photo-electrons for a frame value of 1\n"), std::string::npos) << text;
  const DetectorConfig read = Read(text).config;
  EXPECT_EQ(read.electrons_per_unit, 0.1);
  EXPECT_FALSE(read.photon_noise);
  EXPECT_EQ(read.full_well, 12345.678);
  EXPECT_EQ(read.bits, 12);
  config.full_well.reset();
  EXPECT_EQ(Read(DescribedInFull(config, {})).config.full_well, std::nullopt);

  WriteText(File("flat.fits"), MapFile(std::vector<double>(kPixels, 1.0), "response"));
  EXPECT_EQ(Read(DescribedInFull(config, {{"flat_map", "flat.fits"}})).config.flat_map.size(), kPixels);
}

TEST_F(Description, SaysWhatIsWrong) {
  ExpectRefused("", "expected a JSON object, found something else at line 1, column 1");
  ExpectRefused("[1]", "expected a JSON object, found array");
  ExpectRefused("{\n \"gain\": 2;\n}", "expected a JSON object, found something else at line 2, column 11");
  ExpectRefused(R"({"gain": 2})" + std::string(65536, ' '),
                "expected a JSON object of 65536 bytes at most, found 65547");
  ExpectRefused(R"({"flat_map": "flat.fits\u0000junk"})",
                "flat_map must be the name of a FITS file, found \"flat.fits\\u0000junk\"");
  ExpectRefused(R"({"gain": 1e999})", "expected numbers of magnitude 1.8e308 at most, found a larger one");
  ExpectRefused(R"({"quantum_efficiency": 1})",
                "quantum_efficiency is no parameter of a detector; expected one of electrons_per_unit, background, "
                "dark, photon_noise, em_gain, read_noise, full_well, gain, offset, bits, flat_map, dark_map, "
                "offset_map, bad_pixels, bad_pixel_levels");
  ExpectRefused(R"({"gain": 2, "bits": 12, "gain": 3})", "expected gain once, found it twice");
  ExpectRefused(R"({"read_noise": "3"})", "read_noise must be a number, found \"3\"");
  ExpectRefused(R"({"full_well": true})", "full_well must be a number, or null, found true");
  ExpectRefused(R"({"bits": 12.5})", "bits must be a whole number, found 12.5");
  ExpectRefused(R"({"bits": 4294967308})", "bits must be a whole number, found 4294967308");
  ExpectRefused(R"({"photon_noise": 1})", "photon_noise must be true or false, found 1");
  ExpectRefused(R"({"dark": )" + std::string(30000, '[') + std::string(30000, ']') + "}",
                "dark must be a number, found an array");
  ExpectRefused(R"({"flat_map": 1})", "flat_map must be the name of a FITS file, found 1");
  ExpectRefused(R"({"flat_map": ""})", "flat_map must be the name of a FITS file, found \"\"");
  ExpectRefused(R"({"read_noise": -1})", "read_noise must be from 0 to 1000000, found -1");
  ExpectRefused(R"({"gain": 0})", "gain must be above 0 and at most 1000000, found 0");
  ExpectRefused(R"({"bits": 17})", "bits must be from 1 to 16, found 17");
}

TEST_F(Description, SaysWhatIsWrongWithAMap) {
  EXPECT_THROW(Read(R"({"flat_map": "none.fits"})"), std::runtime_error);
  WriteImage(File("small.fits"), DOUBLE_IMG, {840, 815}, std::vector<double>(std::size_t{840} * 815, 1.0));
  ExpectThrows<std::runtime_error>(
      File("small.fits") + ": expected a map of 840 x 816 pixels (columns x rows), found 840 x 815",
      [&] { Read(R"({"flat_map": "small.fits"})"); });
  WriteImage(File("cube.fits"), DOUBLE_IMG, {2, 2, 2}, std::vector<double>(8, 1.0));
  ExpectThrows<std::runtime_error>(
      File("cube.fits") + ": expected a map of 840 x 816 pixels (columns x rows), found an image of 3 axes",
      [&] { ReadMap(InputFile(File("cube.fits"))); });
  std::vector<double> map(kPixels, 1.0);
  map[840 * 3 + 2] = -0.5;
  WriteText(File("flat.fits"), MapFile(map, "response"));
  ExpectRefused(R"({"flat_map": "flat.fits"})", "flat_map of pixel (2, 3) must be from 0 to 1000, found -0.5");
  map[840 * 3 + 2] = std::nan("");
  WriteText(File("flat.fits"), MapFile(map, "response"));
  ExpectRefused(R"({"flat_map": "flat.fits"})", "flat_map of pixel (2, 3) must be from 0 to 1000, found nan");
  map[840 * 3 + 2] = 1.5;
  WriteText(File("states.fits"), MapFile(map, "states"));
  ExpectThrows<std::runtime_error>(
      File("states.fits") +
          ": expected 0 (good), 1 (dead), 2 (hot) or 3 (stuck) for each pixel, found 1.5 at column 2, row 3",
      [&] { ReadPixelStates(InputFile(File("states.fits"))); });
  WriteText(File("states.fits"), PixelStateFile(std::vector<PixelState>(kPixels, PixelState::kDead)));
  ExpectRefused(R"({"bad_pixels": "states.fits"})", "bad_pixels must leave a good pixel, found none");
  std::filesystem::resize_file(File("flat.fits"), 57600);
  EXPECT_THROW(Read(R"({"flat_map": "flat.fits"})"), std::runtime_error);
}

TEST_F(Description, MapsAreReadByAstropy) {
  std::vector<double> map(kPixels);
  for (std::size_t pixel = 0; pixel < kPixels; ++pixel) map[pixel] = std::sqrt(static_cast<double>(pixel));
  WriteText(File("map.fits"), MapFile(map, "roots"));
  EXPECT_EQ(testing::ComplaintsOfFitsverify(File("map.fits")), "");
  EXPECT_EQ(testing::DescribedByAstropy(File("map.fits")), "0 image '' -64 840x816\n");
  EXPECT_EQ(testing::ImageReadByAstropy(File("map.fits")), map);
  EXPECT_EQ(testing::KeywordReadByAstropy(File("map.fits"), 0, "MAP"), "roots");
  std::vector<PixelState> states(kPixels, PixelState::kGood);
  states[3] = PixelState::kStuck;
  WriteText(File("states.fits"), PixelStateFile(states));
  EXPECT_EQ(testing::ComplaintsOfFitsverify(File("states.fits")), "");
  EXPECT_EQ(testing::ImageReadByAstropy(File("states.fits"))[3], 3.0);
}

// --- Photon transfer

TEST(PhotonTransfer, FindsGainNoiseAndSaturation) {
  DetectorConfig config;
  config.electrons_per_unit = 0.1;
  config.read_noise = 5.0;
  config.gain = 0.8;
  config.offset = 100.0;
  config.full_well = 20000.0;
  config.flat_map = std::vector<double>(kPixels, 1.0);
  for (std::size_t pixel = 0; pixel < kPixels; pixel += 2)
    config.flat_map[pixel] = 0.95;  // is in neither frame's noise
  const auto transfer = MeasurePhotonTransfer(config);
  EXPECT_NEAR(transfer.gain, 0.8, 0.002 * 0.8);
  EXPECT_NEAR(transfer.dark.mean, 100.0, 0.05);
  EXPECT_NEAR(transfer.dark_noise, std::hypot(5.0, std::sqrt(1.0 / 12.0) / 0.8), 0.03);
  EXPECT_NEAR(transfer.saturation, 20000.0, 0.005 * 20000.0);
  EXPECT_LT(transfer.points.front().electrons, 1.0);
}

TEST(PhotonTransfer, HalvesTheVarianceThatMultiplicationDoubles) {
  DetectorConfig config;
  config.em_gain = 100.0;
  config.read_noise = 30.0;
  config.gain = 0.05;
  config.offset = 200.0;
  const auto transfer = MeasurePhotonTransfer(config);
  EXPECT_NEAR(transfer.gain, 5.0, 0.005 * 5.0);
  EXPECT_NEAR(transfer.saturation, (65535.0 - 200.0) / 5.0, 0.01 * 13067.0);
}

TEST(PhotonTransfer, LeavesBadPixelsOut) {
  DetectorConfig config;
  config.offset = 100.0;
  config.read_noise = 2.0;
  config.bad_pixels = std::vector<PixelState>(kPixels, PixelState::kGood);
  config.bad_pixel_levels = std::vector<double>(kPixels, 50000.0);
  for (std::size_t pixel = 0; pixel < kPixels; pixel += 10) config.bad_pixels[pixel] = PixelState::kHot;
  const auto transfer = MeasurePhotonTransfer(config);
  EXPECT_NEAR(transfer.dark.mean, 100.0, 0.05);
  EXPECT_NEAR(transfer.gain, 1.0, 0.005);
}

TEST(PhotonTransferDeathTest, EndsAtTheNextFrameWhenASignalHasCome) {
  const auto interrupt = [] {
    NoteInterruptions();
    static_cast<void>(raise(SIGTERM));
    try {
      MeasurePhotonTransfer({});
    } catch (const Interrupted&) {
      _exit(0);
    }
    _exit(1);
  };
  EXPECT_EXIT(interrupt(), ::testing::ExitedWithCode(0), "");
}

TEST(PhotonTransfer, IsNoneWithoutLightOrItsNoise) {
  EXPECT_THROW(MeasurePhotonTransfer({.electrons_per_unit = 0.0}), std::runtime_error);
  EXPECT_TRUE(std::isnan(MeasurePhotonTransfer({.photon_noise = false}).gain));
}

}  // namespace
}  // namespace quen::workbench
