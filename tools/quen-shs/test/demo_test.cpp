#include "testing/fits_files.hpp"
#include "tools/quen-shs/test/quen_shs.hpp"

// What scripts/demo builds: a part of the tool, which does as the whole.

namespace {

using quen::testing::BytesWithoutChecksums;
using quen::testing::Outcome;
using quen::testing::QuenShs;

using Demo = quen::testing::ToolTest;

Outcome QuenDemo(const std::string& arguments) { return quen::testing::Run(QUEN_DEMO " " + arguments); }

TEST_F(Demo, ItsVerbsAreTheTools) {
  for (const std::string verb : {"calibrate", "loop"}) {
    const Outcome outcome = QuenDemo(verb + " --help");
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_EQ(outcome.out, QuenShs(verb + " --help").out);
  }
  const Outcome another = QuenDemo("check sensor");
  EXPECT_EQ(another.exit_code, 2);
  EXPECT_EQ(another.err, "VERB: expected one of calibrate, loop, found check\nRun with --help for more information.\n");
}

TEST_F(Demo, WritesTheToolsFiles) {
  for (const std::string arguments : {"calibrate ", "loop --frames 10 "}) {
    const Outcome outcome = QuenDemo(arguments + File("demo"));
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
    Done(arguments + File("tool"));
  }
  for (const std::string name : {"data/M2S.fits", "data/CM.fits", "data/shs_rois.fits", "loop/frame.fits",
                                 "loop/slopes.fits", "loop/telemetry.fits", "loop/loop.png"}) {
    EXPECT_EQ(BytesWithoutChecksums(File("demo/" + name)), BytesWithoutChecksums(File("tool/" + name))) << name;
  }
}

}  // namespace
