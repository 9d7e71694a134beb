#include "tools/quen-shs/test/quen_shs.hpp"
#include "workbench/engines/scoring.hpp"

#include <gtest/gtest.h>

#include "testing/fits_files.hpp"
#include "workbench/engines/engines.hpp"

namespace {

using quen::testing::Outcome;
using quen::testing::QuenShs;

using ScoreVerb = quen::testing::SensorToolTest;

TEST_F(ScoreVerb, PrintsARowPerEngineAndTheBound) {
  const Outcome outcome = QuenShs("score --frames 1 " + folder_.Path());
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out.find("noise 10, displacements within 2 pixels, 1 frames, seed 1; least possible RMS 0.00113 "
                             "pixels\n\n| engine             |   bias x |"),
            0U)
      << outcome.out;
  for (const std::string& name : quen::workbench::EngineNames()) {
    EXPECT_NE(outcome.out.find("\n| " + name + " "), std::string::npos) << name;
  }
}

TEST_F(ScoreVerb, TakesEnginesWithOptions) {
  const Outcome outcome =
      QuenShs("score --frames 1 --noise 0 --engine windowed:half-width=4 --engine weighted --seed 7 " + folder_.Path());
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_NE(outcome.out.find("\n| windowed:half-width=4 |"), std::string::npos) << outcome.out;
  EXPECT_NE(outcome.out.find("\n| weighted              |"), std::string::npos) << outcome.out;
  EXPECT_EQ(outcome.out.find("quad-cell"), std::string::npos);
}

TEST_F(ScoreVerb, DrawsThePicture) {
  const Outcome outcome =
      QuenShs("score --frames 1 --engine weighted --png " + File("errors.png") + " " + folder_.Path());
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_NE(outcome.out.find("\nwrote " + File("errors.png") + "\n"), std::string::npos);
  const std::vector<char> picture = quen::testing::Bytes(File("errors.png"));
  ASSERT_GT(picture.size(), 1000U);
  EXPECT_EQ(std::string(picture.begin() + 1, picture.begin() + 4), "PNG");
}

TEST_F(ScoreVerb, SaysWhatIsWrong) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"--engine best",
       "--engine: expected one of centre-of-gravity, windowed, weighted, brightest, quad-cell, correlation, "
       "gaussian-fit, maximum-likelihood, found best"},
      {"--range 13", "--range: expected a number from 0 to 12, found 13"},
      {"--frames 0", "--frames: expected a whole number from 1 to 100000, found 0"}};
  for (const auto& [arguments, reason] : cases) {
    const Outcome outcome = QuenShs("score x " + arguments);
    EXPECT_EQ(outcome.exit_code, 2) << arguments;
    EXPECT_EQ(outcome.err, reason + "\nRun with --help for more information.\n");
  }
  quen::testing::WriteText(File("file"), "");
  const Outcome unwritable =
      QuenShs("score --frames 1 --engine weighted --png " + File("file/a.png") + " " + folder_.Path());
  EXPECT_EQ(unwritable.exit_code, 1);
  EXPECT_EQ(unwritable.err, "quen-shs: cannot make " + File("file") + ": Not a directory\n");
}

TEST_F(ScoreVerb, TheLoopTakesAnEngineToo) {
  const Outcome outcome = QuenShs("loop --frames 20 --engine gaussian-fit:steps=3 " + folder_.Path());
  EXPECT_EQ(outcome.exit_code, 0);
  const std::vector<char> telemetry = quen::testing::Bytes(File("loop/telemetry.fits"));
  EXPECT_NE(std::string(telemetry.begin(), telemetry.end()).find("ENGINE  = 'gaussian-fit:steps=3'"),
            std::string::npos);
  EXPECT_EQ(QuenShs("loop --engine best " + folder_.Path()).exit_code, 2);
}

}  // namespace
