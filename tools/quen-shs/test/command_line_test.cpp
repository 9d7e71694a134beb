#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <numeric>
#include <utility>

#include "testing/environment.hpp"
#include "testing/fits_files.hpp"
#include "testing/second_reader.hpp"
#include "tools/quen-shs/test/quen_shs.hpp"

// The tool as a person or a script runs it.

namespace {

using quen::testing::Bytes;
using quen::testing::BytesWithoutChecksums;
using quen::testing::Outcome;
using quen::testing::QuenShs;
using quen::testing::Quoted;
using quen::testing::TempDir;

std::uint32_t BigEndian(const std::vector<char>& bytes, std::size_t offset) {
  std::uint32_t value = 0;
  for (std::size_t k = 0; k < 4; ++k) value = value << 8U | static_cast<unsigned char>(bytes[offset + k]);
  return value;
}

constexpr std::array kVerbs = {"calibrate", "check", "frame",    "measure", "view",   "score",     "loop",
                               "campaign",  "serve", "detector", "watch",   "manual", "completion"};

std::string NoVerb(const std::string& found) {
  return fmt::format("VERB: expected one of {}, found {}", fmt::join(kVerbs, ", "), found);
}

TEST(CommandLine, HelpExitsWithZero) {
  std::vector<std::string> helps = {"--help"};
  for (const std::string verb : kVerbs) helps.push_back(verb + " --help");
  for (const std::string verb : {"plan", "run", "status", "merge", "plot", "show", "slurm"})
    helps.push_back("campaign " + verb + " --help");
  for (const std::string& arguments : helps) {
    const Outcome outcome = QuenShs(arguments);
    EXPECT_EQ(outcome.exit_code, 0) << arguments;
    EXPECT_NE(outcome.out.find("Example:"), std::string::npos) << arguments;
    EXPECT_EQ(outcome.err, "") << arguments;
  }
}

TEST(CommandLine, VersionIsTheProjects) {
  EXPECT_TRUE(QuenShs("--version").out.starts_with("quen-shs " QUEN_VERSION " ("));
}

TEST(CommandLine, VersionSaysWhichLevelOfInstructionsRuns) {
  const auto version = [](const std::string& with) { return quen::testing::Run(with + " " QUEN_SHS " --version").out; };
  const auto said = [](const std::string& level) { return "quen-shs " QUEN_VERSION " (" + level + ")\n"; };
  const std::string best = version("env -u QUEN_SIMD");
  EXPECT_EQ(version("QUEN_SIMD=plain"), said("plain"));
  EXPECT_EQ(version("QUEN_SIMD=avx2"), best == said("plain") ? best : said("avx2"));
  EXPECT_EQ(version("QUEN_SIMD=avx512"), best);
  EXPECT_EQ(version("QUEN_SIMD="), best);
  EXPECT_EQ(version("QUEN_SIMD=avx3"), best);
}

TEST(CommandLine, EveryLevelOfInstructionsGivesTheSameFrame) {
  const TempDir folder;
  ASSERT_EQ(QuenShs("calibrate " + folder.Path()).exit_code, 0);
  for (const char* const level : {"plain", "avx2", "avx512"}) {
    const std::string command = "QUEN_SIMD=" + std::string(level) + " " QUEN_SHS " frame " + folder.Path() +
                                " --seed 5 --output " + (folder / level);
    ASSERT_EQ(quen::testing::Run(command).exit_code, 0) << command;
    EXPECT_TRUE(BytesWithoutChecksums(folder / level) == BytesWithoutChecksums(folder / "plain")) << level;
  }
}

TEST(CommandLine, WrongUsageExitsWithTwoAndSaysWhy) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", NoVerb("none")},
      {"dance", NoVerb("dance")},
      {"--dance", NoVerb("--dance")},
      {"calibrate", "DIR: expected a name, found none"},
      {"view", "FILE: expected a name, found none"},
      {"calibrate x y", "calibrate: expected no further argument, found y"},
      {"calibrate x y z", "calibrate: expected no further argument, found y"},
      {"calibrate --force=3 x", "--force: expected no value, found one"},
      {"campaign", "campaign: expected one of plan, run, status, merge, plot, show, slurm, found none"},
      {"campaign dance", "campaign: expected one of plan, run, status, merge, plot, show, slurm, found dance"},
      {"campaign plan", "FILE: expected a name, found none"},
      {"campaign plan x y", "campaign plan: expected no further argument, found y"},
      {"campaign plan x --nois 3", "campaign plan: expected its own options, found --nois"},
      {"campaign run x --shard 3/2", "--shard: expected I/N, 1 <= I <= N <= 100000, found 3/2"},
      {"campaign run x --jobs 0", "--jobs: expected a whole number from 1 to 1024, found 0"},
      {"campaign run x", "--output: expected DIR, found none"},
      {"campaign slurm x --output y", "--nodes: expected INTEGER, found none"},
      {"loop x --nois 3", "loop: expected its own options, found --nois"},
      {"loop x -f", "loop: expected its own options, found -f"},
      {"loop x --noise", "--noise: expected NUMBER, found none"},
      {"loop x --noise 1 --noise 2", "--noise: expected once, found 2 times"},
      {"loop x --gain 0.3 --sweep gain=1:1:1", "--gain, --sweep: expected one of the two, found both"},
      {"frame x --modes 0=1 --shape tilt:1 --displacements y",
       "--displacements, --modes, --shape: expected one of them, found all"},
      {"calibrate x --engine weighted", "--engine: expected --measured with it, found none"},
      {"calibrate x --spider-width 0.1", "--spider-width: expected --spider-angle with it, found none"},
      {"detector x --hot-pixels 5", "--hot-pixels: expected --new with it, found none"},
      {"score x --engine", "--engine: expected ENGINE, found none"},
      {"serve x --stream a --wind 8 --disturbance b", "--wind, --disturbance: expected one of the two, found both"},
      {"serve x --stream a --ahead 2 --corrections b", "--corrections, --ahead: expected one of the two, found both"},
      {"serve x --stream a --timeout 3", "--timeout: expected --lockstep with it, found none"},
      {"serve x --frames 0", "--frames: expected a whole number from 1 to 1000000000000000, found 0"},
      {"serve x --faults random:1:2",
       "--faults: expected random:SEED:SHARE, a whole number from 0 to 4294967295 and a number from 0 to 1, found "
       "random:1:2"},
      {"loop x --gain 3", "--gain: expected a number from 0 to 2, found 3"},
      {"loop x --gain nan", "--gain: expected a number from 0 to 2, found nan"},
      {"loop x --noise -1", "--noise: expected a number from 0 to 1000000, found -1"},
      {"loop x --noise inf", "--noise: expected a number from 0 to 1000000, found inf"},
      {"loop x --frames 12.5", "--frames: expected a whole number from 10 to 100000, found 12.5"},
      {"loop x --frames 9", "--frames: expected a whole number from 10 to 100000, found 9"},
      {"loop x --delay 0", "--delay: expected a whole number from 1 to 9, found 0"},
      {"loop x --seed -1", "--seed: expected a whole number from 0 to 4294967295, found -1"},
      {"loop x --seed 0x10", "--seed: expected a whole number from 0 to 4294967295, found 0x10"},
      {"loop x --seed +-1", "--seed: expected a whole number from 0 to 4294967295, found +-1"},
      {"loop x --frames 0x10", "--frames: expected a whole number from 10 to 100000, found 0x10"},
      {"loop x --noise 0x10", "--noise: expected a number from 0 to 1000000, found 0x10"},
      {"loop x --noise 1e999", "--noise: expected a number from 0 to 1000000, found 1e999"},
      {"calibrate x --spider-angle 0x10", "--spider-angle: expected a number from -180 to 180, found 0x10"},
      {"calibrate x --size ' 24'", "--size: expected a whole number from 1 to 200, found  24"},
      {"loop x --amplitude lots", "--d-over-r0: expected a number from 0 to 1000, found lots"}};
  for (const auto& [arguments, reason] : cases) {
    const Outcome outcome = QuenShs(arguments);
    EXPECT_EQ(outcome.exit_code, 2) << arguments;
    EXPECT_EQ(outcome.err, reason + "\nRun with --help for more information.\n") << arguments;
    EXPECT_EQ(outcome.out, "") << arguments;
  }
}

TEST(CommandLine, NumbersAreDecimal) {
  const TempDir folder;
  ASSERT_EQ(QuenShs("calibrate " + folder.Path()).exit_code, 0);
  for (const auto& [seed, found] : {std::pair("010", "10"), {"+7", "7"}, {"4294967295", "4294967295"}}) {
    const Outcome outcome = QuenShs("frame " + folder.Path() + " --noise +01.50 --json --seed " + seed);
    EXPECT_NE(outcome.out.find("\"seed\": " + std::string(found) + ",\n"), std::string::npos) << outcome.out;
    EXPECT_NE(outcome.out.find("\"noise\": 1.5,"), std::string::npos) << outcome.out;
  }
}

TEST(CommandLine, MessagesCarryNothingThatATerminalObeys) {
  const std::string hostile = "a\x1B[2J\nb\x9B\xC2\x9B";
  const std::string shown = "a?[2J?b??";
  EXPECT_EQ(QuenShs(Quoted(hostile)).err, NoVerb(shown) + "\nRun with --help for more information.\n");
  EXPECT_EQ(QuenShs("view x --stretch " + Quoted(hostile)).err,
            "--stretch: expected one of auto, log, zscale, percentile, sqrt, linear, found " + shown +
                "\nRun with --help for more information.\n");
  EXPECT_EQ(QuenShs("view " + Quoted(hostile)).err,
            "quen-shs: " + shown + ": cannot be read: No such file or directory\n");
}

TEST(CommandLine, MessagesAreShort) {
  const std::string lengthy(100000, 'x');
  EXPECT_LT(QuenShs(lengthy).err.size(), 900U);
  const Outcome outcome = QuenShs("view " + lengthy);
  EXPECT_LT(outcome.err.size(), 900U);
  EXPECT_TRUE(outcome.err.ends_with("xxx: cannot be read: File name too long\n")) << outcome.err;
}

TEST(CommandLine, ResultsArePlainForPeopleAndWholeForScripts) {
  const TempDir folder;
  const std::string hostile = folder / "\x1B\nname";
  EXPECT_EQ(QuenShs("manual --folder " + Quoted(hostile)).exit_code, 0);
  const Outcome people = QuenShs("calibrate " + Quoted(hostile));
  EXPECT_EQ(people.out.find('\x1B'), std::string::npos);
  EXPECT_EQ(std::ranges::count(people.out, '\n'), 3);
  EXPECT_NE(people.out.find("/??name/data/M2S.fits\n"), std::string::npos) << people.out;
  const Outcome check = QuenShs("check " + Quoted(hostile));
  EXPECT_EQ(check.out.find('\x1B'), std::string::npos);
  EXPECT_EQ(check.out.find("\nname"), std::string::npos);
  const Outcome scripts = QuenShs("calibrate --force --json " + Quoted(hostile));
  EXPECT_NE(scripts.out.find("/\\u001b\\nname/data/M2S.fits\""), std::string::npos) << scripts.out;
}

TEST(CommandLine, CalibrateNamesItsFilesAndRefusesToReplaceThem) {
  const TempDir folder;
  const std::string sensor = folder / "my sensor";
  const std::string written = "wrote " + sensor + "/data/M2S.fits\nwrote " + sensor + "/data/CM.fits\nwrote " + sensor +
                              "/data/shs_rois.fits\n";
  const Outcome first = QuenShs("calibrate " + Quoted(sensor));
  EXPECT_EQ(first.exit_code, 0);
  EXPECT_EQ(first.out, written);
  const Outcome second = QuenShs("calibrate " + Quoted(sensor));
  EXPECT_EQ(second.exit_code, 1);
  EXPECT_EQ(second.err,
            "quen-shs: " + sensor + "/data/M2S.fits: is there already; give --force to replace the calibration\n");
  EXPECT_EQ(QuenShs("calibrate --force " + Quoted(sensor)).out, written);
}

TEST(CommandLine, FailedJobsExitWithOneAndOneSentence) {
  const TempDir folder;
  quen::testing::WriteText(folder / "file", "");
  const Outcome blocked = QuenShs("calibrate " + (folder / "file"));
  EXPECT_EQ(blocked.exit_code, 1);
  EXPECT_EQ(blocked.err, "quen-shs: cannot make " + (folder / "file/data") + ": Not a directory\n");
  const Outcome missing = QuenShs("loop " + (folder / "nowhere"));
  EXPECT_EQ(missing.exit_code, 1);
  EXPECT_EQ(missing.err, "quen-shs: no calibration in " + (folder / "nowhere") + ": " +
                             (folder / "nowhere/data/M2S.fits") + " is missing; 'quen-shs calibrate " +
                             (folder / "nowhere") + "' makes a synthetic one\n");
  EXPECT_EQ(missing.out, "");
}

TEST(CommandLine, LoopUsesTheNamedFolderWhateverTheEnvironmentSays) {
  const TempDir folder;
  const quen::testing::ScopedVariable cfgpath("CFGPATH", "/nowhere");
  const quen::testing::ScopedVariable introot("INTROOT", std::nullopt);
  ASSERT_EQ(QuenShs("calibrate " + (folder / "a:b")).exit_code, 0);
  EXPECT_EQ(QuenShs("loop --frames 10 " + (folder / "a:b")).exit_code, 0);
}

TEST(CommandLine, LoopWritesItsResultsAndNoProgressIntoAPipe) {
  const TempDir folder;
  ASSERT_EQ(QuenShs("calibrate " + folder.Path()).exit_code, 0);
  const Outcome outcome = QuenShs("loop --frames 20 " + folder.Path());
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.err, "");
  for (const char* const word : {"residual before ", "residual after ", "frames/s"}) {
    EXPECT_NE(outcome.out.find(word), std::string::npos) << outcome.out;
  }
  EXPECT_EQ(quen::testing::EntriesBelow(folder / "loop"), 4U);
  for (const char* const name : {"loop/frame.fits", "loop/slopes.fits", "loop/telemetry.fits"}) {
    EXPECT_TRUE(std::filesystem::exists(folder / name)) << name;
  }
  const std::vector<char> picture = Bytes(folder / "loop/loop.png");
  ASSERT_GT(picture.size(), 1000U);
  EXPECT_EQ(std::string(picture.begin() + 1, picture.begin() + 4), "PNG");
  EXPECT_EQ(BigEndian(picture, 16), 1640U);
  EXPECT_EQ(BigEndian(picture, 20), 900U);
}

TEST(CommandLine, EqualSeedsGiveEqualFiles) {
  const TempDir folder;
  ASSERT_EQ(QuenShs("calibrate " + folder.Path()).exit_code, 0);
  for (const char* const run : {"a --seed 4", "b --seed 4", "c --seed 5"}) {
    ASSERT_EQ(QuenShs("loop --frames 10 " + folder.Path() + " --folder " + folder.Path() + "/" + run).exit_code, 0);
  }
  for (const char* const name : {"/telemetry.fits", "/frame.fits", "/slopes.fits"}) {
    EXPECT_EQ(BytesWithoutChecksums((folder / "a") + name), BytesWithoutChecksums((folder / "b") + name)) << name;
    EXPECT_NE(BytesWithoutChecksums((folder / "a") + name), BytesWithoutChecksums((folder / "c") + name)) << name;
  }
}

TEST(CommandLine, LoopReplacesTheResultsOfAnEarlierRun) {
  const TempDir folder;
  ASSERT_EQ(QuenShs("calibrate " + folder.Path()).exit_code, 0);
  ASSERT_EQ(QuenShs("loop --frames 10 " + folder.Path()).exit_code, 0);
  const std::vector<char> first = BytesWithoutChecksums(folder / "loop/slopes.fits");
  ASSERT_EQ(QuenShs("loop --frames 10 " + folder.Path()).exit_code, 0);
  EXPECT_EQ(BytesWithoutChecksums(folder / "loop/slopes.fits"), first);
}

TEST(CommandLine, LoopThatDoesNotConvergeFailsAndKeepsItsFiles) {
  const TempDir folder;
  ASSERT_EQ(QuenShs("calibrate " + folder.Path()).exit_code, 0);
  const Outcome outcome = QuenShs("loop --frames 15 --gain 1.1 --delay 3 " + folder.Path());
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.err,
            "quen-shs: the loop did not converge: its residual is not below the disturbance; try a lower gain\n");
  EXPECT_TRUE(std::filesystem::exists(folder / "loop/telemetry.fits"));
}

TEST(CommandLine, LoopThatDivergesIsStoppedAndKeepsItsFiles) {
  const TempDir folder;
  ASSERT_EQ(QuenShs("calibrate " + folder.Path()).exit_code, 0);
  const Outcome outcome = QuenShs("loop --frames 1000 --gain 2 --delay 5 " + folder.Path());
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.err.find("quen-shs: the loop diverges: in frame "), 0U) << outcome.err;
  EXPECT_NE(outcome.err.find(" rad RMS, more than 10 times the disturbance; try a lower gain, or a shorter delay\n"),
            std::string::npos)
      << outcome.err;
  const auto frames = quen::testing::ColumnReadByAstropy(folder / "loop/telemetry.fits", "telemetry", "frame");
  EXPECT_GT(frames.size(), 5U);
  EXPECT_LT(frames.size(), 100U);
  EXPECT_EQ(quen::testing::EntriesBelow(folder / "loop"), 4U);
}

TEST(CommandLine, ResultThatCannotBePrintedIsAFailure) {
  const TempDir folder;
  ASSERT_EQ(QuenShs("calibrate " + folder.Path()).exit_code, 0);
  const Outcome outcome = QuenShs("check " + folder.Path() + " > /dev/full");
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.err, "quen-shs: the result cannot be printed: standard output takes no more\n");
}

TEST(CommandLine, ResultThatCannotBePrintedLeavesFilesThatTheMessageTellsOf) {
  const TempDir folder;
  const Outcome outcome = QuenShs("calibrate " + folder.Path() + " > /dev/full");
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.err,
            "quen-shs: the result cannot be printed: standard output takes no more; the files are written\n");
  EXPECT_EQ(quen::testing::EntriesBelow(folder.Path()), 4U);
}

TEST(CommandLine, TextsThatCannotBePrintedAreFailures) {
  for (const char* const arguments : {"--help", "--version", "loop --help", "manual", "completion"}) {
    const Outcome outcome = QuenShs(std::string(arguments) + " > /dev/full");
    EXPECT_EQ(outcome.exit_code, 1) << arguments;
    EXPECT_EQ(outcome.err, "quen-shs: the result cannot be printed: standard output takes no more\n") << arguments;
  }
}

// --- Little of what a process needs. Sanitizers need more.

#if !defined(QUEN_SANITIZED)
/// Fails, as soon as the loader has found all libraries, with one sentence, or does what it is to do.
void ExpectSentenceOrSuccess(const Outcome& outcome, const std::string& what) {
  constexpr int kLoaderFailed = 127;
  if (outcome.exit_code == kLoaderFailed) return;
  EXPECT_TRUE(outcome.exit_code == 0 || outcome.exit_code == 1) << what << ": " << outcome.exit_code << outcome.err;
  EXPECT_EQ(std::ranges::count(outcome.err, '\n'), outcome.exit_code) << what << ": " << outcome.err;
  EXPECT_EQ(outcome.exit_code == 1, outcome.err.starts_with("quen-shs: ")) << what << ": " << outcome.err;
}

TEST(CommandLine, LittleMemoryIsASentence) {
  const TempDir folder;
  ASSERT_EQ(QuenShs("calibrate " + (folder / "s") + " && " QUEN_SHS " loop " + (folder / "s") +
                    " --frames 10 --folder " + folder.Path())
                .exit_code,
            0);
  std::size_t failed = 0;
  for (const std::string verb :
       {"calibrate c --force --basis karhunen-loeve", "check s", "frame s --png p.png", "measure s frame.fits",
        "view frame.fits", "view telemetry.fits", "view s/data/CM.fits",
        "score s --frames 1 --engine weighted --output c.fits --png p.png", "loop s --frames 10"}) {
    for (int kilobytes = 40000; kilobytes <= 104000; kilobytes += 7000) {
      const std::string command =
          "cd " + Quoted(folder.Path()) + " && ulimit -v " + std::to_string(kilobytes) + " && " + QUEN_SHS + " " + verb;
      const Outcome outcome = quen::testing::Run(command);
      ExpectSentenceOrSuccess(outcome, command);
      failed += outcome.exit_code == 1 ? 1 : 0;
    }
  }
  EXPECT_GT(failed, 18U) << "the limits are too wide to show anything";
}

/// The heap may leave nothing for the stack to grow into.
TEST(CommandLine, LastOfTheMemoryIsASentence) {
  const TempDir folder;
  ASSERT_EQ(QuenShs("calibrate " + (folder / "s")).exit_code, 0);
  const auto check = [&](int kilobytes) {
    return "ulimit -v " + std::to_string(kilobytes) + " && " + QUEN_SHS + " check " + (folder / "s");
  };
  int too_little = 40000;
  int enough = 400000;
  while (enough - too_little > 1) {
    const int kilobytes = std::midpoint(too_little, enough);
    (quen::testing::Run(check(kilobytes)).exit_code == 0 ? enough : too_little) = kilobytes;
  }
  constexpr int kStep = 37;
  for (int kilobytes = too_little; kilobytes > enough - 60 * kStep; kilobytes -= kStep) {
    ExpectSentenceOrSuccess(quen::testing::Run(check(kilobytes)), check(kilobytes));
  }
}

TEST(CommandLine, FewDescriptorsAreASentence) {
  const TempDir folder;
  ASSERT_EQ(QuenShs("calibrate " + (folder / "s")).exit_code, 0);
  for (const std::string verb : {"check s", "frame s --png p.png", "view s/data/CM.fits", "loop s --frames 10"}) {
    for (int descriptors = 3; descriptors <= 8; ++descriptors) {
      const std::string command = "cd " + Quoted(folder.Path()) + " && ulimit -n " + std::to_string(descriptors) +
                                  " && " + QUEN_SHS + " " + verb;
      ExpectSentenceOrSuccess(quen::testing::Run(command), command);
    }
  }
}
#endif

TEST(CommandLine, ResultStandsBeforeTheFailure) {
  const TempDir folder;
  ASSERT_EQ(QuenShs("calibrate " + folder.Path()).exit_code, 0);
  const Outcome outcome = QuenShs("loop --frames 200 --gain 2 --delay 5 " + folder.Path() + " 2>&1");
  EXPECT_LT(outcome.out.find("frames  "), outcome.out.find("quen-shs: the loop diverges")) << outcome.out;
}

}  // namespace
