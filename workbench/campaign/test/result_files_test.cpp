#include "workbench/campaign/result_files.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <string>

#include "testing/environment.hpp"
#include "testing/fits_files.hpp"

namespace {

using quen::testing::Bytes;
using quen::testing::TempDir;
using quen::workbench::ParseShard;
using quen::workbench::ResultFiles;
using quen::workbench::RunRecord;
using quen::workbench::RunState;
using quen::workbench::Shard;

constexpr std::uint64_t kRuns = 20;

RunRecord Done(double value) { return {RunState::kDone, {value, -value}}; }

/// The same for each run.
void WriteAll(const ResultFiles& files, const Shard& shard) {
  ResultFiles::Writer writer(files, shard);
  for (std::uint64_t run = 0; run < files.Runs(); ++run) {
    if (shard.Has(run)) writer.Write(run, Done(static_cast<double>(run)));
  }
}

/// How many of the runs are in a state.
std::size_t Count(const ResultFiles& files, RunState state) {
  std::size_t count = 0;
  for (const RunRecord& record : files.Read(0, kRuns)) count += record.state == state ? 1U : 0U;
  return count;
}

class Results : public ::testing::Test {
 protected:
  void Damage(const std::string& name, std::streamoff at) const {
    std::fstream file(folder_ / name, std::ios::in | std::ios::out | std::ios::binary);
    file.seekg(at);
    const char byte = static_cast<char>(file.get() ^ 0x10);
    file.seekp(at);
    file.put(byte);
  }

  TempDir folder_;
  ResultFiles files_ = ResultFiles(folder_.Path(), "identity", 2, kRuns);
};

TEST_F(Results, AreReadAsTheyWereWritten) {
  EXPECT_EQ(Count(files_, RunState::kMissing), kRuns);
  ResultFiles::Writer writer(files_, {2, 3});
  const double nan = std::numeric_limits<double>::quiet_NaN();
  writer.Write(4, {RunState::kDone, {0.1, nan}});
  writer.Write(7, {RunState::kFailed, {1.0, 2.0}, "the loop\ndiverges"});
  writer.Settle();
  const auto records = files_.Read(3, 5);
  ASSERT_EQ(records.size(), 5U);
  EXPECT_EQ(records[0].state, RunState::kMissing);
  EXPECT_EQ(records[1].state, RunState::kDone);
  EXPECT_EQ(records[1].values[0], 0.1);
  EXPECT_TRUE(std::isnan(records[1].values[1]));
  EXPECT_EQ(records[4].state, RunState::kFailed);
  EXPECT_EQ(records[4].failure, "the loop?diverges");
  EXPECT_EQ(records[4].file, folder_ / "runs-2-of-3");
  EXPECT_EQ(files_.Read(kRuns - 1, 5).size(), 1U);
}

TEST_F(Results, OfAnyShardsAreOneCampaign) {
  WriteAll(files_, {2, 4});
  EXPECT_EQ(Count(files_, RunState::kDone), 5U);
  WriteAll(files_, {1, 3});
  WriteAll(files_, {2, 3});
  EXPECT_EQ(Count(files_, RunState::kDone), 16U);
  WriteAll(files_, {3, 3});
  const auto records = files_.Read(0, kRuns);
  for (std::uint64_t run = 0; run < kRuns; ++run) EXPECT_EQ(records[run].values[0], static_cast<double>(run));
  // Shards have all of the runs, each once.
  for (const std::uint64_t of : {1U, 3U, 7U, 20U, 25U}) {
    std::uint64_t sum = 0;
    for (std::uint64_t number = 1; number <= of; ++number) sum += Shard{number, of}.Size(kRuns);
    EXPECT_EQ(sum, kRuns);
  }
}

TEST_F(Results, EveryChangedByteIsDamageOfOneRun) {
  WriteAll(files_, {1, 1});
  const std::size_t size = Bytes(folder_ / "runs-1-of-1").size();
  ASSERT_EQ(size % kRuns, 0U);
  for (std::size_t at = 0; at < size; at += 7) {
    Damage("runs-1-of-1", static_cast<std::streamoff>(at));
    const auto records = files_.Read(0, kRuns);
    EXPECT_EQ(records[at / (size / kRuns)].state, RunState::kDamaged) << at;
    EXPECT_EQ(Count(files_, RunState::kDone), kRuns - 1) << at;
    Damage("runs-1-of-1", static_cast<std::streamoff>(at));
  }
}

TEST_F(Results, AFileThatEndsEarlyLacksTheRest) {
  WriteAll(files_, {1, 1});
  const std::size_t place = Bytes(folder_ / "runs-1-of-1").size() / kRuns;
  std::filesystem::resize_file(folder_ / "runs-1-of-1", 5 * place + place / 2);
  EXPECT_EQ(Count(files_, RunState::kDone), 5U);
  EXPECT_EQ(Count(files_, RunState::kDamaged), 1U);
  EXPECT_EQ(Count(files_, RunState::kMissing), kRuns - 6);
}

TEST_F(Results, OfAnotherCampaignOrRunAreNone) {
  WriteAll(files_, {1, 1});
  EXPECT_EQ(Count({folder_.Path(), "another", 2, kRuns}, RunState::kDone), 0U);
  std::filesystem::rename(folder_ / "runs-1-of-1", folder_ / "runs-2-of-3");
  EXPECT_EQ(Count(files_, RunState::kDone), 0U);
}

TEST_F(Results, ASuccessStandsOverAFailure) {
  ResultFiles::Writer one(files_, {1, 1});
  ResultFiles::Writer other(files_, {1, 2});
  one.Write(4, {RunState::kFailed, {0.0, 0.0}, "no"});
  EXPECT_EQ(files_.Read(4, 1)[0].state, RunState::kFailed);
  other.Write(4, Done(4.0));
  EXPECT_EQ(files_.Read(4, 1)[0].state, RunState::kDone);
}

TEST_F(Results, ThatContradictEachOtherAreNamed) {
  ResultFiles::Writer(files_, {1, 1}).Write(4, Done(4.0));
  ResultFiles::Writer(files_, {1, 2}).Write(4, Done(5.0));
  try {
    static_cast<void>(files_.Read(0, kRuns));
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(error.what(), (folder_ / "runs-1-of-1") + " and " + (folder_ / "runs-1-of-2") +
                                ": expected the same result of run 4 in both, found two; remove the file of the "
                                "machine that is wrong");
  }
}

TEST_F(Results, OtherFilesAreLeftAlone) {
  for (const char* const name : {"runs-0-of-1", "runs-2-of-1", "runs-01-of-1", "runs-x", "runs-1-of-1.bak"}) {
    quen::testing::WriteText(folder_ / name, std::string(5000, 'x'));
  }
  EXPECT_EQ(Count(files_, RunState::kMissing), kRuns);
}

TEST(ShardText, IsIOfN) {
  EXPECT_EQ(ParseShard("3/8"), (Shard{3, 8}));
  for (const char* const text : {"", "3", "0/8", "9/8", "1/0", "-1/8", "1/8 ", "a/b", "1/100001", "1//8"}) {
    EXPECT_THROW(ParseShard(text), std::invalid_argument) << text;
  }
}

}  // namespace
