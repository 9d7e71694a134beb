#include <gtest/gtest.h>

#include "centroiders/centre_of_gravity.hpp"
#include "common/logging/logging.hpp"
#include "common/simd/level.hpp"
#include "shssim/shs_simulator.hpp"
#include "testing/calibration.hpp"
#include "testing/recording_appender.hpp"

// The simulator's library and the engines are two binaries here, as in most hosts; the level is decided once for both.

namespace quen::centroiders {
namespace {

using quen::testing::LogListener;
using quen::testing::ScopedVariable;

/// Draws and measures in a process that wishes for a level that there is not. Ends with 0 if that made one record.
void ExitWhetherWarnedOnce() {
  const ScopedVariable variable("QUEN_SIMD", "avx1024");
  const LogListener log(common::GetLogger());
  shssim::ShsSimulator simulator;
  const std::vector<double> zeros(basesim::kNumRois, 0.0);
  CentreOfGravity engine;
  for (int k = 0; k < 2; ++k) {
    simulator.ComputeFrame(zeros, zeros, 10.0);
    simulator.ComputeSlopes(engine, 12.0);
  }
  const bool warned_once =
      log.Records().size() == 1 && log.Records()[0].level == log4cplus::WARN_LOG_LEVEL &&
      log.Records()[0].message.starts_with("QUEN_SIMD: expected plain, avx2 or avx512, found avx1024");
  std::_Exit(warned_once ? 0 : 1);
}

TEST(LevelOfTheProcessDeathTest, UnknownWordIsWarnedOfOnceThoughThereAreTwoLibraries) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const testing::CalibrationFolder folder;
  EXPECT_EXIT(ExitWhetherWarnedOnce(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace quen::centroiders
