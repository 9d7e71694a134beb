#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>

#include "testing/environment.hpp"
#include "testing/faulty_stdio.hpp"
#include "testing/fits_files.hpp"
#include "testing/process.hpp"
#include "testing/second_reader.hpp"
#include "tools/quen-shs/verbs/verbs.hpp"
#include "workbench/sensor/calibration.hpp"

// The tool's commands with the disk failing at any moment, and killed at any moment: one sentence, and whole files or
// none.

namespace {

using quen::testing::BytesWithoutChecksums;
using quen::testing::Fault;
using quen::testing::FaultyDisk;
using quen::testing::Outcome;
using quen::testing::Quoted;
using quen::testing::TempDir;

using Contents = std::map<std::string, std::vector<char>>;

/// Names and contents of all files below a folder.
Contents Files(const std::string& folder) {
  Contents files;
  if (!std::filesystem::exists(folder)) return files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file()) {
      files[std::filesystem::relative(entry.path(), folder)] = BytesWithoutChecksums(entry.path());
    }
  }
  return files;
}

/// Does in this process what the tool does with these arguments.
void Do(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "quen-shs");
  std::vector<char*> argv;
  argv.reserve(arguments.size());
  for (std::string& argument : arguments) argv.push_back(argument.data());
  quen::tool::CommandLine line;
  quen::tool::AddVerbs(line);
  EXPECT_EQ(line.Run(static_cast<int>(argv.size()), argv.data()), 0);
}

/// Runs `action` with a fault at every write that it makes. A report that cannot be printed is no fault of the files.
template <typename Action, typename Check>
void AtEveryWrite(const Action& action, const Check& check) {
  std::size_t writes = 0;
  {
    const FaultyDisk disk(Fault::kFullDisk, 0);
    action();
    writes = FaultyDisk::Calls();
  }
  check(0, false);
  ASSERT_GT(writes, 0U);
  constexpr std::array kFaults = {Fault::kFullDisk, Fault::kWriteError};
  for (const Fault fault : kFaults) {
    for (std::size_t nth = 1; nth <= writes; ++nth) {
      bool failed = false;
      {
        const FaultyDisk disk(fault, nth);
        try {
          action();
        } catch (const std::exception& error) {
          const std::string text = error.what();
          failed = !text.starts_with("the result cannot be printed");
          EXPECT_EQ(text.find('\n'), std::string::npos);
        }
      }
      check(nth, failed);
    }
  }
}

TEST(CalibrateFault, LeavesAllFilesOrNone) {
  const TempDir folder;
  quen::workbench::WriteCalibration(folder / "good", false);
  const Contents good = Files(folder / "good");
  AtEveryWrite([&] { quen::workbench::WriteCalibration(folder / "c", true); },
               [&](std::size_t nth, bool failed) {
                 EXPECT_TRUE(Files(folder / "c") == (failed ? Contents() : good)) << "write " << nth;
                 std::filesystem::remove_all(folder / "c");
               });
}

TEST(LoopFault, KeepsTheResultsOfTheRunBefore) {
  const TempDir folder;
  quen::workbench::WriteCalibration(folder.Path(), false);
  const auto loop = [&](const std::string& seed, const std::string& output) {
    Do({"loop", folder.Path(), "--frames", "10", "--d-over-r0", "0", "--seed", seed, "--folder", folder / output});
  };
  loop("1", "before");
  const Contents before = Files(folder / "before");
  loop("2", "after");
  const Contents after = Files(folder / "after");
  ASSERT_EQ(before.size(), 4U);
  AtEveryWrite(
      [&] {
        std::filesystem::copy(folder / "before", folder / "loop");
        loop("2", "loop");
      },
      [&](std::size_t nth, bool failed) {
        EXPECT_TRUE(Files(folder / "loop") == (failed ? before : after)) << "write " << nth;
        std::filesystem::remove_all(folder / "loop");
      });
}

// --- Killed --------------------------------------------------------------------------------------------------------

/// Runs the tool in a shell that lets no file grow beyond `blocks` of 512 bytes, so that a write is where it dies.
Outcome KilledAtSize(int blocks, const std::string& arguments) {
  return quen::testing::Run("ulimit -c 0; ulimit -f " + std::to_string(blocks) + "; exec " QUEN_SHS " " + arguments);
}

/// The files of a folder that bear their last name: what was left of others when the tool was killed is no result.
Contents Results(const std::string& folder) {
  Contents files = Files(folder);
  std::erase_if(files, [](const auto& file) { return file.first.ends_with(".part"); });
  return files;
}

void ExpectWholeOrAbsent(const Contents& found, const Contents& whole, const std::string& when) {
  for (const auto& [name, content] : found) {
    ASSERT_TRUE(whole.contains(name)) << name;
    EXPECT_TRUE(content == whole.at(name)) << name << when;
  }
}

TEST(Killed, AtAWriteItsFilesAreWholeOrAbsent) {
  const TempDir folder;
  quen::workbench::WriteCalibration(folder / "good", false);
  const Contents good = Files(folder / "good");
  const std::string good_folder = Quoted(folder / "good");
  quen::testing::Run(QUEN_SHS " loop " + good_folder + " --frames 20 --folder " + Quoted(folder / "out"));
  const Contents results = Files(folder / "out");
  int killed = 0;
  for (const int blocks : {1, 40, 990, 1300, 2600}) {
    const std::string when = " with " + std::to_string(blocks) + " blocks";
    if (KilledAtSize(blocks, "calibrate " + Quoted(folder / "c")).exit_code != 0) ++killed;
    ExpectWholeOrAbsent(Results(folder / "c"), good, when);
    std::filesystem::remove_all(folder / "c");
    KilledAtSize(blocks, "loop " + good_folder + " --frames 20 --folder " + Quoted(folder / "l"));
    ExpectWholeOrAbsent(Results(folder / "l"), results, when);
    std::filesystem::remove_all(folder / "l");
  }
  EXPECT_EQ(killed, 3);  // a matrix has 996 blocks
}

TEST(Killed, AtAnyTimeItsFilesAreWholeOrAbsent) {
  const TempDir folder;
  quen::workbench::WriteCalibration(folder / "good", false);
  const Contents good = Files(folder / "good");
  for (int step = 1; step <= 10; ++step) {
    const std::string seconds = std::to_string(0.08 * step);
    const std::string when = " after " + seconds + " s";
    quen::testing::Run("timeout -s KILL " + seconds + " " QUEN_SHS " calibrate " + Quoted(folder / "c"));
    ExpectWholeOrAbsent(Results(folder / "c"), good, when);
    std::filesystem::remove_all(folder / "c");
  }
}

TEST(FullDevice, IsOneSentenceAndExitCodeOne) {
  const TempDir folder;
  for (const int blocks : {1, 500}) {
    const Outcome outcome = quen::testing::Run("trap '' XFSZ; ulimit -f " + std::to_string(blocks) +
                                               "; exec " QUEN_SHS " calibrate " + Quoted(folder / "c"));
    EXPECT_EQ(outcome.exit_code, 1) << blocks;
    EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
    EXPECT_TRUE(outcome.err.starts_with("quen-shs: ")) << outcome.err;
    EXPECT_EQ(Files(folder / "c"), Contents());
  }
}

}  // namespace
