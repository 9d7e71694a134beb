#include "workbench/campaign/execution.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "testing/environment.hpp"
#include "testing/fits_files.hpp"
#include "workbench/campaign/result_tables.hpp"
#include "workbench/campaign/status.hpp"
#include "workbench/sensor/calibration.hpp"

namespace {

using namespace quen::workbench;  // NOLINT(google-build-using-namespace)
using quen::testing::TempDir;

/// Loops of which some diverge.
constexpr const char* kLoops =
    "verb = 'loop'\ncalibration = '.'\nframes = 60\nrepeats = 2\nnoise = 0\n"
    "[axes]\ngain = [0.3, 2.0]\ndelay = [1, 5]\nengine = ['weighted', 'quad-cell']\n";
constexpr const char* kScores =
    "verb = 'score'\ncalibration = '.'\nframes = 1\nrepeats = 3\n[axes]\nengine = ['weighted', 'brightest']\nrange = "
    "[0, 1]\n";

class Execution : public ::testing::Test {
 protected:
  Execution() { WriteCalibration(sensor_.Path(), false); }

  [[nodiscard]] CampaignInputs Inputs(const std::string& text) const {
    return CampaignInputs(ParseCampaign("c", text, sensor_.Path()));
  }

  static ExecutionCounts RunAll(const CampaignInputs& inputs, const std::string& folder,
                                const ExecutionOptions& options) {
    const CampaignFolder campaign = PrepareFolder(folder, inputs);
    ExecutionCounts counts = WhatIsToDo(campaign, options);
    Execute(inputs, campaign, options, counts, [] {});
    return counts;
  }

  TempDir sensor_;
  TempDir folder_;
};

TEST_F(Execution, GivesTheSameBytesHoweverItRuns) {
  for (const char* const text : {kLoops, kScores}) {
    const TempDir folder;
    const CampaignInputs inputs = Inputs(text);
    RunAll(inputs, folder / "one", {});
    RunAll(inputs, folder / "three", {.jobs = 3});
    for (std::uint64_t number = 4; number >= 1; --number) RunAll(inputs, folder / "shards", {.shard = {number, 4}});
    RunAll(inputs, folder / "mixed", {.shard = {2, 3}});
    RunAll(inputs, folder / "mixed", {.jobs = 2, .shard = {1, 2}});
    EXPECT_THROW(MergeResults(OpenFolder(folder / "mixed"), false), std::runtime_error);
    RunAll(inputs, folder / "mixed", {.jobs = 2});
    const MergedTables expected = MergeResults(OpenFolder(folder / "one"), false);
    for (const char* const name : {"three", "shards", "mixed"}) {
      const MergedTables merged = MergeResults(OpenFolder(folder / name), false);
      EXPECT_TRUE(merged.runs == expected.runs) << name;
      EXPECT_TRUE(merged.points == expected.points) << name;
    }
  }
}

TEST_F(Execution, FailuresAreResultsWithTheirSentence) {
  const CampaignInputs inputs = Inputs(kLoops);
  EXPECT_GT(RunAll(inputs, folder_.Path(), {}).failed, 0U);
  const CampaignStatus status = StatusOf(OpenFolder(folder_.Path()));
  EXPECT_EQ(status.missing, 0U);
  EXPECT_EQ(status.done + status.failed, 16U);
  ASSERT_GT(status.failed, 0U);
  EXPECT_TRUE(status.first_failures.front().second.starts_with("the loop d"));
  EXPECT_EQ(RunAll(inputs, folder_.Path(), {}).finished, 0U);
  EXPECT_EQ(RunAll(inputs, folder_.Path(), {.retry_failed = true}).finished, status.failed);
}

TEST_F(Execution, WhatIsDamagedIsNamedAndRunAgain) {
  const CampaignInputs inputs = Inputs(kScores);
  RunAll(inputs, folder_.Path(), {});
  const MergedTables expected = MergeResults(OpenFolder(folder_.Path()), false);
  const std::string file = folder_ / "runs-1-of-1";
  std::vector<char> bytes = quen::testing::Bytes(file);
  bytes[bytes.size() / 2 + 20] ^= 1;
  quen::testing::WriteText(file, std::string(bytes.begin(), bytes.end()));
  EXPECT_EQ(StatusOf(OpenFolder(folder_.Path())).damaged, 1U);
  const ExecutionCounts counts = RunAll(inputs, folder_.Path(), {});
  EXPECT_EQ(counts.damaged, 1U);
  EXPECT_EQ(counts.first_damaged, "run 6 in " + file);
  EXPECT_EQ(counts.finished, 1U);
  EXPECT_TRUE(MergeResults(OpenFolder(folder_.Path()), false).runs == expected.runs);
}

TEST_F(Execution, AnotherCampaignIsRefusedInTheSameFolder) {
  const std::string text = kScores;
  PrepareFolder(folder_.Path(), Inputs(text));
  const auto refusal = [&](const std::string& other) -> std::string {
    try {
      PrepareFolder(folder_.Path(), Inputs(other));
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "";
  };
  const auto said = [&](const std::string& what) {
    return folder_.Path() + ": holds another campaign; " + what + "; give another folder";
  };
  EXPECT_EQ(refusal(text), "");
  EXPECT_EQ(refusal("seed = 2\n" + text), said("seed: it has 1, this campaign 2"));
  EXPECT_EQ(refusal("noise = 3\n" + text), said("noise: it has none, this campaign 3.0"));
  EXPECT_EQ(refusal(text + "noise = [1]\n"), said("axes.noise: it has none, this campaign [1.0]"));
  EXPECT_EQ(refusal("verb = 'score'\ncalibration = '.'\nframes = 1\nrepeats = 3\n"
                    "[axes]\nrange = [0, 1]\nengine = ['weighted', 'brightest']\n"),
            said("the order of the axes"));
}

}  // namespace
