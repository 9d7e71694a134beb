#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "testing/environment.hpp"
#include "testing/fits_files.hpp"
#include "testing/process.hpp"
#include "tools/quen-shs/test/quen_shs.hpp"

// The tool on a terminal, which script(1) gives it: progress, Ctrl-C, completion, manual pages.

namespace {

using quen::testing::Outcome;

using quen::testing::TempDir;

Outcome Shell(const std::string& command) { return quen::testing::Run(command); }

class Terminal : public quen::testing::SensorToolTest {
 protected:
  /// Runs a command on a terminal; `keys` are shell commands whose output is typed.
  Outcome OnTerminal(const std::string& command, const std::string& keys = ":") {
    return Shell("(" + keys + ") | script -qec " + quen::testing::Quoted(command) + " " + (folder_ / "typescript"));
  }
};

TEST_F(Terminal, ProgressTellsFrameTimeAndRate) {
  const Outcome outcome = OnTerminal(QUEN_SHS " loop --frames 800 " + folder_.Path(), "sleep 5");
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_NE(outcome.out.find(" of 800, "), std::string::npos) << outcome.out;
  EXPECT_NE(outcome.out.find(" s left, "), std::string::npos) << outcome.out;
  EXPECT_NE(outcome.out.find("\r\033[Kframes  "), std::string::npos) << "the line is not cleared at the end";
}

TEST_F(Terminal, ProgressStaysInANarrowWindow) {
  const Outcome outcome = OnTerminal("stty cols 12; " QUEN_SHS " loop --frames 800 " + folder_.Path(), "sleep 5");
  EXPECT_NE(outcome.out.find("\033[Kframe "), std::string::npos) << outcome.out;
  std::size_t shown = 0;
  for (std::size_t at = 0; (at = outcome.out.find("\r\033[Kframe ", at)) != std::string::npos; ++at) {
    const std::size_t first = at + 4;
    const std::size_t end = outcome.out.find('\r', first);
    if (outcome.out.compare(first, 7, "frames ") == 0) continue;  // the result
    EXPECT_EQ(end - first, 11U) << outcome.out.substr(first, end - first);
    ++shown;
  }
  EXPECT_GT(shown, 0U);
}

TEST_F(Terminal, ServerTellsHowItIs) {
  const Outcome outcome = OnTerminal("MILK_SHM_DIR=" + folder_.Path() + " " QUEN_SHS " serve --stream wfs --rate 50 " +
                                         "--frames 60 " + folder_.Path(),
                                     "sleep 3");
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_NE(outcome.out.find("; readers 0; received 0"), std::string::npos) << outcome.out;
}

TEST_F(Terminal, CtrlCLeavesNoFile) {
  for (const std::string& command : {"loop --frames 100000 --folder " + (folder_ / "out"),
                                     "loop --frames 50000 --sweep gain=0.1:0.9:0.1 --folder " + (folder_ / "out"),
                                     "score --frames 100000 --png " + (folder_ / "out/errors.png")}) {
    const Outcome outcome =
        OnTerminal(QUEN_SHS " " + command + " " + folder_.Path(), "sleep 1; printf '\\003'; sleep 1");
    EXPECT_NE(outcome.out.find("quen-shs: interrupted; no file was written"), std::string::npos) << outcome.out;
    EXPECT_EQ(outcome.exit_code, 130) << command;  // as the shell sees a process that SIGINT ended
    EXPECT_EQ(std::filesystem::exists(folder_ / "out") ? quen::testing::EntriesBelow(folder_ / "out") : 0U, 0U);
  }
}

TEST_F(Terminal, CtrlCKeepsWhatWasThere) {
  ASSERT_EQ(Shell(QUEN_SHS " loop --frames 10 " + folder_.Path()).exit_code, 0);
  const auto before = quen::testing::Bytes(folder_ / "loop/telemetry.fits");
  const Outcome outcome =
      Shell("timeout --preserve-status -s TERM 0.5 " QUEN_SHS " loop --frames 100000 " + folder_.Path());
  EXPECT_EQ(outcome.exit_code, 143);
  EXPECT_EQ(quen::testing::Bytes(folder_ / "loop/telemetry.fits"), before);
  EXPECT_EQ(quen::testing::EntriesBelow(folder_ / "loop"), 4U);
}

// --- Completion

/// What bash completes the last word to.
std::string Completed(const std::string& words) {
  return Shell("bash -c '. <(" QUEN_SHS " completion); COMP_WORDS=(" + words +
               "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _quen_shs; printf \"%s\\n\" \"${COMPREPLY[@]}\"'")
      .out;
}

TEST(Completion, KnowsVerbsOptionsAndWords) {
  EXPECT_EQ(Completed("quen-shs c"), "calibrate\ncheck\ncampaign\ncompletion\n");
  EXPECT_EQ(Completed("quen-shs loop --de"), "--delay\n--detector\n");
  EXPECT_EQ(Completed("quen-shs calibrate DIR --basis z"), "zernike\n");
  EXPECT_EQ(Completed("quen-shs view f --stretch \"\""), "auto\nlog\nzscale\npercentile\nsqrt\nlinear\n");
  EXPECT_EQ(Completed("quen-shs measure --engine w"), "windowed\nweighted\n");
  EXPECT_EQ(Completed("quen-shs campaign s"), "status\nshow\nslurm\n");
  EXPECT_EQ(Completed("quen-shs campaign run x --sh"), "--shard\n");
  EXPECT_EQ(Completed("quen-shs loop x"), "\n");  // bash goes on with files
  EXPECT_EQ(Shell("bash -c '. <(" QUEN_SHS " completion); complete -p quen-shs'").out,
            "complete -o default -F _quen_shs quen-shs\n");
}

// --- Manual pages

TEST(Manual, HasAPagePerVerbInTheWordsOfItsHelp) {
  const TempDir folder;
  ASSERT_EQ(Shell(QUEN_SHS " manual --folder " + (folder / "man1")).exit_code, 0);
  EXPECT_EQ(quen::testing::EntriesBelow(folder / "man1"), 21U);
  for (const char* const verb : {"",
                                 "-calibrate",
                                 "-check",
                                 "-frame",
                                 "-measure",
                                 "-view",
                                 "-score",
                                 "-loop",
                                 "-campaign",
                                 "-campaign-plan",
                                 "-campaign-run",
                                 "-campaign-status",
                                 "-campaign-merge",
                                 "-campaign-plot",
                                 "-campaign-show",
                                 "-campaign-slurm",
                                 "-serve",
                                 "-detector",
                                 "-watch",
                                 "-manual",
                                 "-completion"}) {
    const std::string path = (folder / "man1/quen-shs") + verb + ".1";
    const Outcome page = Shell("man --warnings=w -E UTF-8 -P cat -l " + path);
    EXPECT_EQ(page.err, "") << path;
    for (const char* const section : {"\nNAME\n", "\nSYNOPSIS\n", "\nDESCRIPTION\n", "\nOPTIONS\n", "\nEXAMPLES\n"}) {
      EXPECT_NE(page.out.find(section), std::string::npos) << path << page.out;
    }
  }
  const std::string loop = Shell("COLUMNS=200 MANWIDTH=200 man -P cat -l " + (folder / "man1/quen-shs-loop.1")).out;
  EXPECT_NE(
      loop.find("--leak NUMBER\n              Fraction of the correction that is forgotten in each frame, 0 to 1 [0]"),
      std::string::npos)
      << loop;
  EXPECT_NE(loop.find("quen-shs loop [OPTION...] DIR\n"), std::string::npos) << loop;
}

TEST(Manual, PrintsOnePage) {
  EXPECT_EQ(Shell(QUEN_SHS " manual check").out.find(".TH quen\\-shs\\-check 1"), 0U);
  EXPECT_EQ(Shell(QUEN_SHS " manual").out.find(".TH quen\\-shs 1"), 0U);
  const Outcome outcome = Shell(QUEN_SHS " manual dance");
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.err, "quen-shs: there is no manual page for dance; 'quen-shs --help' lists the verbs\n");
}

}  // namespace
