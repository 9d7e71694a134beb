#pragma once

#include <gtest/gtest.h>

#include <string>

#include "testing/environment.hpp"
#include "testing/process.hpp"
#include "workbench/sensor/calibration.hpp"

namespace quen::testing {

/// Runs the tool without a terminal.
inline Outcome QuenShs(const std::string& arguments) { return Run(QUEN_SHS " " + arguments); }

/// Runs of the tool, and a folder of the test's own.
class ToolTest : public ::testing::Test {
 protected:
  [[nodiscard]] std::string File(const std::string& name) const { return folder_ / name; }

  /// What a run prints, which must succeed without a warning.
  static std::string Done(const std::string& arguments) {
    const Outcome outcome = QuenShs(arguments);
    EXPECT_EQ(outcome.exit_code, 0) << arguments;
    EXPECT_EQ(outcome.err, "") << arguments;
    return outcome.out;
  }

  /// That a run fails with this sentence, and prints nothing.
  static void ExpectFailure(const std::string& arguments, int exit_code, const std::string& sentence) {
    const Outcome outcome = QuenShs(arguments);
    EXPECT_EQ(outcome.exit_code, exit_code) << arguments;
    EXPECT_EQ(outcome.err, sentence + "\n") << arguments;
    EXPECT_EQ(outcome.out, "") << arguments;
  }

  TempDir folder_;
};

/// The same with a synthetic calibration in the folder, DIR.
class SensorToolTest : public ToolTest {
 protected:
  SensorToolTest() { workbench::WriteCalibration(folder_.Path(), false); }

  /// What "quen-shs VERB DIR ARGUMENTS" prints.
  std::string Do(const std::string& verb, const std::string& arguments) {
    return Done(verb + " " + folder_.Path() + " " + arguments);
  }
};

}  // namespace quen::testing
