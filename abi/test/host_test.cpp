#include <gtest/gtest.h>

#include <mutex>
#include <set>
#include <thread>

#include "common/filesystem/filesystem.hpp"
#include "common/fits/fits.hpp"
#include "common/random/random.hpp"
#include "defs/camera.hpp"
#include "quen_image_processing/centroiding/centroiding.hpp"
#include "shssim/shs_simulator.hpp"
#include "testing/calibration.hpp"

// The shared library as a host sees it: public headers, nothing else.

namespace {

using quen::common::random::detail::MersenneTwisterEngine;
using quen::common::random::detail::s_random;

class Brightest : public quen::image_processing::Centroiding<std::uint16_t> {
 public:
  void Compute(gsl::span<const std::uint16_t> frame, const quen::image_processing::Roi& roi) override {
    flux = 0;
    for (std::size_t r = roi.y_low; r < roi.y_up; ++r) {
      for (std::size_t c = roi.x_low; c < roi.x_up; ++c) {
        if (frame[r * roi.x_max + c] <= flux) continue;
        flux = frame[r * roi.x_max + c];
        x = static_cast<double>(c) - roi.x_ref;
        y = static_cast<double>(r) - roi.y_ref;
      }
    }
  }
};

TEST(Host, NamesTheGeneratorFromSeveralThreads) {
  std::set<const std::mt19937*> generators;
  std::vector<std::thread> threads;
  threads.reserve(4);
  std::mutex mutex;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      const std::mt19937* const named = &s_random;  // first access of this thread, by name
      const std::uint_fast32_t first = s_random();
      const std::lock_guard lock(mutex);
      EXPECT_EQ(named, &MersenneTwisterEngine());
      EXPECT_NE(first, 0U);
      generators.insert(named);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_GE(generators.size(), 1U);
}

TEST(Host, SeesNothingPrinted) {
  const quen::testing::CalibrationFolder calibration;
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  {
    quen::shssim::ShsSimulator simulator;
    Brightest engine;
    const std::vector<double> still(1089, 0.0);
    simulator.ComputeFrame(still, still, 10.0, calibration / "frame.fits");
    simulator.ComputeSlopes(engine, 4.0, calibration / "slopes.fits");
    EXPECT_THROW(simulator.ComputeFrame({}, still, 0.0, std::nullopt), std::invalid_argument);
    EXPECT_THROW(simulator.ComputeFrame(still, still, 0.0, "/proc/self/fdinfo/a.fits"), std::runtime_error);
    EXPECT_THROW(quen::image_processing::Roi(2, 1, 0, 0, 9, 9, 0.0, 0.0), std::invalid_argument);
    EXPECT_THROW(quen::common::Fits::FitsFile("/none.fits", std::nullopt), std::runtime_error);
    EXPECT_THROW(quen::common::FileSystem::FindFileOrThrow("none", {}), std::runtime_error);
  }
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

TEST(Host, GeneratorAccessedByNameFirstIsSeeded) {
  std::thread([] {
    const std::mt19937 named = s_random;
    EXPECT_TRUE(named == MersenneTwisterEngine());
    EXPECT_FALSE(named == std::mt19937());
  }).join();
}

TEST(Host, RepeatsARunFromItsOwnSeed) {
  const quen::testing::CalibrationFolder folder;
  quen::shssim::ShsSimulator simulator;
  const std::vector<double> still(1089);
  s_random.seed(3);
  simulator.ComputeFrame(still, still, 10.0, std::nullopt);
  const std::vector<std::uint16_t> first = simulator.Frame();
  simulator.ComputeFrame(still, still, 10.0, std::nullopt);
  EXPECT_NE(simulator.Frame(), first);
  MersenneTwisterEngine() = std::mt19937(3);
  simulator.ComputeFrame(still, still, 10.0, std::nullopt);
  EXPECT_EQ(simulator.Frame(), first);
}

TEST(Host, MeasuresWhatItRenders) {
  const quen::testing::CalibrationFolder folder;
  quen::shssim::ShsSimulator simulator;
  const std::vector<double> dx(1089, 2.5);  // references lie half a pixel off: spots peak on a pixel
  const std::vector<double> dy(1089, -3.5);
  simulator.ComputeFrame(dx, dy, 0.0, std::nullopt);
  Brightest brightest;
  simulator.ComputeSlopes(brightest, 10.0, std::nullopt);
  EXPECT_EQ(simulator.FluxUsed(), std::vector<double>(607, 4096.0));
  EXPECT_EQ(simulator.XSlopesUsed(), std::vector<double>(607, 2.5));
  EXPECT_EQ(simulator.YSlopesUsed(), std::vector<double>(607, -3.5));
}

TEST(Host, SimulatorsInSeveralThreadsDoNotMeet) {
  const quen::testing::CalibrationFolder folder;
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&, i] {
      quen::shssim::ShsSimulator simulator;
      const std::vector<double> still(1089);
      const std::string name = folder / "out" + std::to_string(i) + ".fits";
      s_random.seed(17);
      simulator.ComputeFrame(still, still, 10.0, name);
      Brightest brightest;
      simulator.ComputeSlopes(brightest, 10.0, name);
      std::mt19937 expected(17);
      expected.discard(2ULL * 1089 * 576);
      EXPECT_TRUE(s_random == expected);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
