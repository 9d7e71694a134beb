#include "workbench/campaign/execution.hpp"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "testing/environment.hpp"
#include "testing/fits_files.hpp"
#include "workbench/campaign/result_tables.hpp"
#include "workbench/campaign/status.hpp"
#include "workbench/fits/staged_file.hpp"
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

struct MergedTables {
  std::string runs;
  std::string points;
};

/// Both files.
MergedTables Merged(const std::string& folder) {
  MergedTables tables;
  const auto into = [](std::string& file) {
    return [&file](std::string_view bytes, std::size_t position) {
      file.resize(std::max(file.size(), position + bytes.size()));
      file.replace(position, bytes.size(), bytes);
    };
  };
  MergeResults(OpenFolder(folder), false, into(tables.runs), into(tables.points));
  return tables;
}

class Execution : public ::testing::Test {
 protected:
  Execution() { WriteCalibration(sensor_.Path(), false); }

  [[nodiscard]] CampaignInputs Inputs(const std::string& text) const {
    return CampaignInputs(ParseCampaign("c", text, sensor_.Path()));
  }

  struct How {
    int jobs = 1;
    Shard shard = {};
    bool retry_failed = false;
  };

  static ExecutionCounts RunAll(const CampaignInputs& inputs, const std::string& folder, const How& how) {
    const CampaignFolder campaign = PrepareFolder(folder, inputs);
    const WorkList work = WhatIsToDo(campaign, how.shard, how.retry_failed);
    return Execute(inputs, campaign, work, how.jobs, [] {});
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
    EXPECT_THROW(Merged(folder / "mixed"), std::runtime_error);
    RunAll(inputs, folder / "mixed", {.jobs = 2});
    const MergedTables expected = Merged(folder / "one");
    for (const char* const name : {"three", "shards", "mixed"}) {
      const MergedTables merged = Merged(folder / name);
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
  const MergedTables expected = Merged(folder_.Path());
  const std::string file = folder_ / "runs-1-of-1";
  std::vector<char> bytes = quen::testing::Bytes(file);
  bytes[bytes.size() / 2 + 20] ^= 1;
  quen::testing::WriteText(file, std::string(bytes.begin(), bytes.end()));
  EXPECT_EQ(StatusOf(OpenFolder(folder_.Path())).damaged, 1U);
  const WorkList work = WhatIsToDo(OpenFolder(folder_.Path()), {}, false);
  EXPECT_EQ(work.runs, 1U);
  EXPECT_EQ(work.damaged, 1U);
  EXPECT_EQ(work.first_damaged, "run 6 in " + file);
  EXPECT_EQ(RunAll(inputs, folder_.Path(), {}).finished, 1U);
  EXPECT_TRUE(Merged(folder_.Path()).runs == expected.runs);
}

/// What a list holds grows with the gaps alone.
TEST_F(Execution, WhatIsToDoIsTheRangesBetweenWhatIsDone) {
  const CampaignInputs inputs = Inputs(kScores);
  const CampaignFolder folder = PrepareFolder(folder_.Path(), inputs);
  const auto ranges = [&](const Shard& shard) {
    std::vector<std::pair<std::uint64_t, std::uint64_t>> list;
    for (const auto& [first, count] : WhatIsToDo(folder, shard, false).ranges) list.emplace_back(first, count);
    return list;
  };
  using List = std::vector<std::pair<std::uint64_t, std::uint64_t>>;
  EXPECT_EQ(ranges({}), (List{{0, 12}}));
  EXPECT_EQ(ranges({2, 5}), (List{{1, 3}}));
  RunAll(inputs, folder_.Path(), {.shard = {3, 5}});  // 2 and 7
  EXPECT_EQ(ranges({}), (List{{0, 2}, {3, 4}, {8, 4}}));
  EXPECT_EQ(ranges({1, 2}), (List{{0, 1}, {4, 4}}));
  EXPECT_EQ(ranges({3, 5}), List());
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

// --- Memory

/// Makes the tables of a campaign with a point for each run, all of which are there, in a process of its own.
/// @return  kilobytes that this had in memory at the most
long PeakOfMerging(const CampaignInputs& inputs, const std::string& folder) {
  const CampaignFolder campaign = PrepareFolder(folder, inputs);
  ResultFiles::Writer writer(campaign.results, {});
  const std::vector<double> values(inputs.Of().Rules().results.size(), 0.1);
  for (std::uint64_t run = 0; run < inputs.Of().Runs(); ++run) writer.Write(run, {RunState::kDone, values});
  const pid_t child = fork();
  if (child == 0) {
    StagedFiles files({folder + "/runs.fits", folder + "/points.fits"});
    const auto into = [&files](const std::string& name) {
      return [&files, name](std::string_view bytes, std::size_t position) { files.GiveAt(name, bytes, position); };
    };
    MergeResults(campaign, false, into(folder + "/runs.fits"), into(folder + "/points.fits"));
    files.Commit();
    _exit(0);
  }
  int status = -1;
  struct rusage usage {};
  EXPECT_EQ(wait4(child, &status, 0, &usage), child);
  EXPECT_EQ(status, 0);
  return usage.ru_maxrss;  // NOLINT(cppcoreguidelines-pro-type-union-access): as the C library has it
}

TEST_F(Execution, MergingTakesAsMuchMemoryForManyRunsAsForFew) {
#if defined(QUEN_SANITIZED)
  GTEST_SKIP() << "sanitizers keep what is given back";
#endif
  constexpr long kNoise = 4096;  // kilobytes
  const std::string scores = "verb = 'score'\ncalibration = '.'\nframes = 1\nengine = 'weighted'\n[axes]\n";
  const long few = PeakOfMerging(Inputs(scores + "noise = { from = 1, to = 20000, step = 1 }"), folder_ / "few");
  const long many = PeakOfMerging(Inputs(scores + "noise = { from = 1, to = 100000, step = 1 }"), folder_ / "many");
  EXPECT_LT(many - few, kNoise) << "tables of 45 MB";
  EXPECT_GT(std::filesystem::file_size(folder_ / "many/points.fits"), 30U << 20U);
}

}  // namespace
