#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "testing/environment.hpp"
#include "testing/fits_files.hpp"
#include "tools/quen-shs/test/quen_shs.hpp"
#include "workbench/check/check.hpp"
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
  EXPECT_TRUE(good.out.ends_with((folder / "good") + ": 14 things checked, 0 wrong, 0 doubtful\n")) << good.out;
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
  EXPECT_EQ(outcome.out,
            "0 14 {'key': 'loading', 'verdict': 'good', 'subject': 'loading', 'text': 'the library loads it', "
            "'advice': '', 'mistakes': []}\n");
}

TEST(CheckVerb, NeedsACalibration) {
  const TempDir folder;
  const Outcome outcome = QuenShs("check " + (folder / "nowhere"));
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.err.find("quen-shs: no calibration in "), 0U) << outcome.err;
}

/// A calibration of which one file is changed.
class DamagedCalibration {
 public:
  explicit DamagedCalibration(const std::function<void(quen::workbench::Calibration&)>& damage) {
    quen::workbench::Calibration calibration = quen::workbench::MakeCalibration();
    damage(calibration);
    WriteCalibration(folder_ / "sensor", false, calibration);
  }

  [[nodiscard]] std::string operator/(const std::string& name) const { return folder_ / name; }

 private:
  TempDir folder_;
};

bool IsPng(const std::string& path) { return quen::testing::Run("head -c 4 " + path + " | tail -c 3").out == "PNG"; }

void Scale(quen::workbench::Calibration& calibration) { calibration.cm.row(0) *= 0.3; }
void Exchange(quen::workbench::Calibration& calibration) {
  const quen::workbench::Matrix before = calibration.m2s;
  calibration.m2s << before.bottomRows(607), before.topRows(607);
}
void Negate(quen::workbench::Calibration& calibration) { calibration.cm *= -1.0; }

TEST(CheckVerb, TakesDoubtsForFailuresWhereAskedTo) {
  const DamagedCalibration folder(Scale);
  EXPECT_EQ(QuenShs("check " + (folder / "sensor")).exit_code, 0);
  const Outcome outcome = QuenShs("check --strict " + (folder / "sensor"));
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.err, "quen-shs: the calibration in " + (folder / "sensor") + " is doubtful\n");
  EXPECT_NE(outcome.out.find("doubtful  CM * M2S       gains from 0.3 to 1"), std::string::npos) << outcome.out;
}

TEST(CheckVerb, WritesTheCorrectedCalibrationWhereThatIsCertain) {
  const DamagedCalibration folder(Exchange);
  const Outcome outcome = QuenShs("check " + (folder / "sensor") + " --fix " + (folder / "mended"));
  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_NE(outcome.out.find("put right: write the y block first, then the x block"), std::string::npos) << outcome.out;
  EXPECT_EQ(QuenShs("check --strict " + (folder / "mended")).exit_code, 0);
  const quen::workbench::CalibrationContent mended = *quen::workbench::CheckCalibration(folder / "mended").content;
  EXPECT_EQ(mended.m2s, quen::workbench::MakeCalibration().m2s);
  const Outcome over = QuenShs("check " + (folder / "sensor") + " --fix " + (folder / "sensor"));
  EXPECT_EQ(over.exit_code, 1);
  EXPECT_NE(over.err.find("is there already"), std::string::npos) << over.err;
}

TEST(CheckVerb, WritesNothingWhereACorrectionIsNotCertain) {
  const DamagedCalibration folder(Negate);
  const Outcome outcome = QuenShs("check " + (folder / "sensor") + " --fix " + (folder / "mended"));
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_NE(outcome.err.find("the corrections are not certain, so nothing is written"), std::string::npos)
      << outcome.err;
  EXPECT_NE(outcome.out.find("the sign of one of the two is flipped throughout"), std::string::npos) << outcome.out;
  EXPECT_EQ(outcome.out.find("put right"), std::string::npos) << outcome.out;
  EXPECT_FALSE(std::filesystem::exists(folder / "mended"));
  const Outcome json = QuenShs("check --json " + (folder / "sensor") + " --fix " + (folder / "mended"));
  EXPECT_EQ(json.exit_code, 1);
  EXPECT_NE(json.out.find("\"key\": \"cm.sign\""), std::string::npos) << json.out;
  EXPECT_TRUE(json.out.ends_with("}\n")) << json.out;
}

TEST(CheckVerb, DrawsWhatItFinds) {
  const DamagedCalibration folder(Exchange);
  const Outcome wrong = QuenShs("check " + (folder / "sensor") + " --png " + (folder / "new/findings.png"));
  EXPECT_EQ(wrong.exit_code, 1);
  EXPECT_EQ(wrong.err, "quen-shs: the calibration in " + (folder / "sensor") + " is not to be trusted\n");
  EXPECT_TRUE(wrong.out.ends_with("1 wrong, 0 doubtful\nwrote " + (folder / "new/findings.png") + "\n")) << wrong.out;
  EXPECT_TRUE(IsPng(folder / "new/findings.png"));
  const Outcome good = QuenShs("check --json " + (folder / "sensor") + " --png " + (folder / "all.png") + " --fix " +
                               (folder / "mended"));
  EXPECT_EQ(good.exit_code, 0) << good.err;
  EXPECT_NE(good.out.find("all.png\",\n"), std::string::npos) << good.out;
  EXPECT_NE(good.out.find("mended/data/M2S.fits\",\n"), std::string::npos) << good.out;
  EXPECT_TRUE(IsPng(folder / "all.png"));
  EXPECT_EQ(QuenShs("check --strict " + (folder / "mended") + " --png " + (folder / "good.png")).exit_code, 0);
  EXPECT_TRUE(IsPng(folder / "good.png"));
}

TEST(CheckVerb, WritesAllThatIsAskedForOrNothing) {
  const DamagedCalibration folder(Negate);
  const Outcome outcome =
      QuenShs("check " + (folder / "sensor") + " --png " + (folder / "findings.png") + " --fix " + (folder / "mended"));
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_FALSE(std::filesystem::exists(folder / "findings.png"));
  EXPECT_FALSE(std::filesystem::exists(folder / "mended"));
}

TEST(CheckVerb, DrawsNothingOfWhatTheLibraryRefuses) {
  const DamagedCalibration folder([](auto&) {});
  std::filesystem::resize_file(folder / "sensor/data/M2S.fits", 5760);
  const Outcome outcome = QuenShs("check " + (folder / "sensor") + " --png " + (folder / "findings.png"));
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_TRUE(outcome.out.ends_with("no picture: the library does not load the calibration\n")) << outcome.out;
  EXPECT_FALSE(std::filesystem::exists(folder / "findings.png"));
}

TEST(CheckVerb, DrawsOverNoFileOfTheCalibration) {
  const DamagedCalibration folder([](auto&) {});
  const std::vector<char> before = quen::testing::Bytes(folder / "sensor/data/CM.fits");
  const Outcome outcome = QuenShs("check " + (folder / "sensor") + " --png " + (folder / "sensor/data/CM.fits"));
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_NE(outcome.err.find("it is the same file as"), std::string::npos) << outcome.err;
  EXPECT_EQ(quen::testing::Bytes(folder / "sensor/data/CM.fits"), before);
}

TEST(CheckVerb, LooksAtItsTargetsBeforeTheCalibration) {
  const TempDir folder;
  for (const char* const option : {" --png ", " --fix "}) {
    const Outcome outcome = QuenShs("check " + (folder / "none") + option + "/dev/null/x");
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_EQ(outcome.err.find("quen-shs: cannot make /dev/null"), 0U) << outcome.err;
  }
}

TEST(CheckVerb, GivesThePictureOnStandardOutputAlone) {
  const DamagedCalibration folder([](auto&) {});
  const Outcome outcome =
      quen::testing::Run(QUEN_SHS " check " + (folder / "sensor") + " --png /dev/stdout > " + (folder / "out"));
  EXPECT_TRUE(IsPng(folder / "out"));
  EXPECT_NE(outcome.err.find("14 things checked"), std::string::npos) << outcome.err;
}

TEST(CheckVerb, FindsTheCalibrationAboveItsData) {
  const DamagedCalibration folder([](auto&) {});
  EXPECT_EQ(QuenShs("check " + (folder / "sensor/data")).exit_code, 0);
  EXPECT_EQ(QuenShs("check " + (folder / "sensor/data/")).exit_code, 0);
}

TEST(CheckVerb, IsJsonWhateverHappens) {
  const TempDir folder;
  const Outcome outcome = quen::testing::Run(QUEN_SHS " check --json " + (folder / "nowhere") +
                                             " | " QUEN_PYTHON
                                             " -c 'import json, sys; d = json.load(sys.stdin); print(d[\"wrong\"], "
                                             "d[\"findings\"][0][\"key\"], d[\"findings\"][0][\"text\"][:17])'");
  EXPECT_EQ(outcome.out, "1 calibration no calibration in\n");
}

TEST(CheckVerb, ExaminesTheOthersWhereAFileIsMissing) {
  const DamagedCalibration folder(Exchange);
  std::filesystem::remove(folder / "sensor/data/CM.fits");
  const Outcome outcome = QuenShs("check " + (folder / "sensor"));
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.err, "quen-shs: the calibration in " + (folder / "sensor") + " is not to be trusted\n");
  EXPECT_NE(outcome.out.find("\nWRONG     CM.fits        no calibration in "), std::string::npos) << outcome.out;
  EXPECT_NE(outcome.out.find("\nWRONG     M2S layout     its x and y blocks are exchanged"), std::string::npos);
  EXPECT_TRUE(outcome.out.ends_with(": 11 things checked, 2 wrong, 1 doubtful\n")) << outcome.out;
  const Outcome json =
      QuenShs("check --json " + (folder / "sensor") +
              " | " QUEN_PYTHON
              " -c 'import json, sys; print([f[\"key\"] for f in json.load(sys.stdin)[\"findings\"] if "
              "f[\"verdict\"] != \"good\"])'");
  EXPECT_EQ(json.out, "['cm.file', 'm2s.layout', 'skipped']\n");
}

TEST(CheckVerb, WritesNothingOfACalibrationThatLacksAFile) {
  const DamagedCalibration folder(Exchange);
  std::filesystem::remove(folder / "sensor/data/CM.fits");
  const Outcome png = QuenShs("check " + (folder / "sensor") + " --png " + (folder / "findings.png"));
  EXPECT_EQ(png.exit_code, 1);
  EXPECT_TRUE(png.out.ends_with("no picture: the library does not load the calibration\n")) << png.out;
  const Outcome fix = QuenShs("check " + (folder / "sensor") + " --fix " + (folder / "mended"));
  EXPECT_EQ(fix.exit_code, 1);
  EXPECT_EQ(fix.err,
            "quen-shs: the library does not load the calibration, so there is nothing that could be put "
            "right\n");
  EXPECT_NE(fix.out.find("2 wrong, 1 doubtful"), std::string::npos) << fix.out;
  EXPECT_FALSE(std::filesystem::exists(folder / "findings.png"));
  EXPECT_FALSE(std::filesystem::exists(folder / "mended"));
}

}  // namespace
