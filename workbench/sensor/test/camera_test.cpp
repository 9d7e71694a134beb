#include "workbench/sensor/camera.hpp"

#include <gtest/gtest.h>

#include "common/random/random.hpp"
#include "testing/environment.hpp"
#include "testing/fits_files.hpp"
#include "testing/second_reader.hpp"
#include "workbench/sensor/calibration.hpp"
#include "workbench/sensor/calibration_lookup.hpp"
#include "workbench/sensor/frame_file.hpp"

namespace quen::workbench {
namespace {

using quen::testing::KeywordReadByAstropy;
using quen::testing::TempDir;
using Counts = std::vector<std::uint16_t>;

std::shared_ptr<const DetectorDescription> SomeDetector() {
  auto detector = std::make_shared<DetectorDescription>();
  detector->config.electrons_per_unit = 0.01;
  detector->config.read_noise = 3.0;
  detector->config.offset = 100.0;
  detector->config.full_well = 1000.0;
  detector->maps.push_back({"flat_map", "flat.fits"});
  return detector;
}

class CameraTest : public ::testing::Test {
 protected:
  CameraTest() {
    WriteCalibration(folder_.Path(), false);
    UseCalibration(folder_.Path());
  }

  Counts Drawn(Camera& camera) {
    camera.Draw(none_);
    return camera.Frame();
  }

  TempDir folder_;
  Displacements none_;
};

TEST_F(CameraTest, WithoutADetectorIsTheSimulator) {
  Camera camera;
  camera.Use({.noise = 50.0, .seed = 4});
  shssim::ShsSimulator simulator;
  const Counts first = Drawn(camera);
  const Counts second = Drawn(camera);
  common::random::detail::MersenneTwisterEngine().seed(4);
  simulator.ComputeFrame(none_.x, none_.y, 50.0);
  EXPECT_EQ(first, simulator.Frame());
  simulator.ComputeFrame(none_.x, none_.y, 50.0);
  EXPECT_EQ(second, simulator.Frame());
}

TEST_F(CameraTest, ExposesItsDetectorToLightWithoutNoise) {
  Camera camera;
  camera.Use({.noise = 1000.0, .seed = 9, .detector = SomeDetector()});
  Drawn(camera);
  const Counts second = Drawn(camera);
  shssim::ShsSimulator simulator;
  simulator.ComputeFrame(none_.x, none_.y, 0.0);
  detector::DetectorConfig config = SomeDetector()->config;
  config.seed = 9;
  Counts expected(second.size());
  detector::Detector(config).Expose(simulator.FrameValues(), 1, expected);
  EXPECT_EQ(second, expected);
}

TEST_F(CameraTest, BeginsAnewWhenToldHow) {
  Camera camera;
  const Exposure exposure = {.seed = 2, .detector = SomeDetector()};
  camera.Use(exposure);
  const Counts first = Drawn(camera);
  EXPECT_NE(Drawn(camera), first);
  camera.Use(exposure);
  EXPECT_EQ(Drawn(camera), first);
  camera.Use({.seed = 3, .detector = SomeDetector()});
  EXPECT_NE(Drawn(camera), first);
  camera.Use({.noise = 0.0});
  EXPECT_EQ(Drawn(camera)[0], 0);
}

TEST_F(CameraTest, FrameFileTellsTheDetector) {
  Camera camera;
  const Exposure exposure = {.seed = 2, .detector = SomeDetector()};
  camera.Use(exposure);
  Drawn(camera);
  const std::string path = folder_ / "f.fits";
  testing::WriteText(path, FrameFile(camera, exposure));
  EXPECT_EQ(testing::ComplaintsOfFitsverify(path), "");
  const std::vector<double> pixels = testing::ImageReadByAstropy(path);
  EXPECT_EQ(pixels, std::vector<double>(camera.Frame().begin(), camera.Frame().end()));
  EXPECT_GT(pixels[0], 50.0);
  const std::vector<std::pair<const char*, const char*>> keys = {
      {"DETUNIT", "0.01"},  {"DETBACK", "0.0"}, {"DETDARK", "0.0"},       {"DETPHOT", "on"},
      {"DETEMG", "1.0"},    {"DETREAD", "3.0"}, {"DETWELL", "1000.0"},    {"DETGAIN", "1.0"},
      {"DETOFFS", "100.0"}, {"DETBITS", "16"},  {"DETFLAT", "flat.fits"}, {"SEED", "2"}};
  for (const auto& [key, value] : keys) EXPECT_EQ(KeywordReadByAstropy(path, 0, key), value) << key;
  const Frame read = ReadFrame(InputFile(path));
  EXPECT_TRUE(read.is_unsigned);
  EXPECT_EQ(read.pixels, camera.Frame());
}

}  // namespace
}  // namespace quen::workbench
