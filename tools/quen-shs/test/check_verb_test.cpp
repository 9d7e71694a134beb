#include <gtest/gtest.h>

#include <filesystem>

#include "testing/environment.hpp"
#include "tools/quen-shs/test/quen_shs.hpp"
#include "workbench/sensor/calibration.hpp"

// What 'check' prints and how it ends. What it finds has tests of its own.

namespace {

using quen::testing::Outcome;
using quen::testing::QuenShs;
using quen::testing::TempDir;
using quen::workbench::WriteCalibration;

TEST(CheckVerb, ExitsWithOneWhereSomethingIsWrong) {
  const TempDir folder;
  WriteCalibration(folder / "good", false);
  WriteCalibration(folder / "wrong", false);
  std::filesystem::copy_file(folder / "wrong/data/CM.fits", folder / "wrong/data/M2S.fits",
                             std::filesystem::copy_options::overwrite_existing);

  const Outcome good = QuenShs("check " + (folder / "good"));
  EXPECT_EQ(good.exit_code, 0);
  EXPECT_EQ(good.err, "");
  EXPECT_TRUE(good.out.ends_with((folder / "good") + ": 12 things checked, 0 wrong, 0 doubtful\n")) << good.out;
  const Outcome wrong = QuenShs("check " + (folder / "wrong"));
  EXPECT_EQ(wrong.exit_code, 1);
  EXPECT_EQ(wrong.err, "quen-shs: the calibration in " + (folder / "wrong") + " is not to be trusted\n");
  EXPECT_TRUE(wrong.out.starts_with("WRONG     M2S.fits       ")) << wrong.out;
}

TEST(CheckVerb, GivesItsFindingsAsJson) {
  const TempDir folder;
  WriteCalibration(folder.Path(), false);
  const Outcome outcome = quen::testing::Run(QUEN_SHS " check --json " + folder.Path() +
                                             " | " QUEN_PYTHON
                                             " -c 'import json, sys; d = json.load(sys.stdin); "
                                             "print(d[\"wrong\"], len(d[\"findings\"]), d[\"findings\"][3])'");
  EXPECT_EQ(outcome.out, "0 12 {'verdict': 'good', 'subject': 'loading', 'text': 'the library loads it'}\n");
}

TEST(CheckVerb, NeedsACalibration) {
  const TempDir folder;
  const Outcome outcome = QuenShs("check " + (folder / "nowhere"));
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.err.find("quen-shs: no calibration in "), 0U) << outcome.err;
}

}  // namespace
