#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "testing/fits_files.hpp"
#include "tools/quen-shs/test/quen_shs.hpp"
#include "tools/quen-shs/verbs/verbs.hpp"
#include "workbench/campaign/options.hpp"

namespace {

using nlohmann::json;
using quen::testing::Bytes;
using quen::testing::Outcome;
using quen::testing::QuenShs;
using quen::testing::WriteText;

/// A folder with a calibration, and campaigns in it.
class CampaignVerb : public quen::testing::SensorToolTest {
 protected:
  CampaignVerb() {
    WriteText(File("loops.toml"),
              "verb = 'loop'\ncalibration = '.'\nframes = 40\nrepeats = 2\nd-over-r0 = 10\n"
              "[axes]\ngain = [0.3, 2.0]\ndelay = [1, 5]\nengine = ['weighted', 'windowed:half-width=5']\n");
    WriteText(File("scores.json"),
              R"({"verb": "score", "calibration": ".", "frames": 2, "repeats": 2,
                  "axes": {"engine": ["weighted", "brightest"], "photons": [1000, 1e5]}})");
  }

  /// What "quen-shs campaign WORDS" prints as JSON.
  static json Said(const std::string& words) { return json::parse(Done("campaign " + words + " --json")); }

  std::string RunAll(const std::string& campaign, const std::string& folder, const std::string& options = "") {
    Done("campaign run " + File(campaign) + " --output " + File(folder) + " " + options);
    return File(folder);
  }

  static std::string TextOf(const std::string& file) {
    const std::vector<char> bytes = Bytes(file);
    return {bytes.begin(), bytes.end()};
  }

  static void ExpectFailure(const std::string& words, const std::string& sentence) {
    const Outcome outcome = QuenShs("campaign " + words);
    EXPECT_EQ(outcome.exit_code, 1) << words;
    EXPECT_EQ(outcome.err, "quen-shs: " + sentence + "\n") << words;
    EXPECT_EQ(outcome.out, "") << words;
  }
};

TEST_F(CampaignVerb, PlanTellsWhatThereIsToDo) {
  const json plan = Said("plan " + File("loops.toml"));
  EXPECT_EQ(plan["points"], 8);
  EXPECT_EQ(plan["repeats"], 2);
  EXPECT_EQ(plan["runs"], 16);
  EXPECT_GT(plan["expected_seconds"], 0.0);
  const std::string text = Done("campaign plan " + File("loops.toml"));
  EXPECT_NE(text.find("axis engine             2 values, weighted to windowed:half-width=5\n"), std::string::npos)
      << text;
}

TEST_F(CampaignVerb, RunsWhatIsMissing) {
  const std::string folder = RunAll("loops.toml", "out", "--shard 2/3 --jobs 2");
  json status = Said("status " + folder);
  EXPECT_EQ(status["runs"], 16);
  EXPECT_EQ(status["missing"], 11);
  ExpectFailure("merge " + folder, folder +
                                       ": expected 16 runs, 11 of them are missing; 'quen-shs campaign run' goes "
                                       "on, or give --partial");
  EXPECT_EQ(Said("run " + File("loops.toml") + " --output " + folder)["finished"], 11);
  EXPECT_EQ(Said("run " + File("loops.toml") + " --output " + folder)["finished"], 0);
  status = Said("status " + folder);
  EXPECT_EQ(status["missing"], 0);
  EXPECT_EQ(status["running"], 0);
  EXPECT_GT(status["failed"], 0);
  EXPECT_TRUE(status["first_failures"][0]["sentence"].get<std::string>().starts_with("the loop d"));
}

TEST_F(CampaignVerb, ShowsTheCommandThatRepeatsALoop) {
  const std::string folder = RunAll("loops.toml", "out");
  for (const int run : {0, 3, 9, 15}) {
    const json shown = Said("show " + folder + " --run " + std::to_string(run));
    const auto command = shown["command"].get<std::string>();
    ASSERT_TRUE(command.starts_with("quen-shs loop "));
    const Outcome outcome = QuenShs(command.substr(9) + " --json --folder " + File("hand"));
    const json byhand = json::parse(outcome.out);
    EXPECT_EQ(byhand["residual_after"], shown["results"]["residual"]) << command;
    EXPECT_EQ(byhand["residual_before"], shown["results"]["residual_before"]) << command;
    EXPECT_EQ(byhand["frames"], shown["results"]["frames_run"]) << command;
    const auto failure = shown["failure"].get<std::string>();
    EXPECT_EQ(outcome.err, failure.empty() ? "" : "quen-shs: " + failure + "\n") << command;
  }
}

TEST_F(CampaignVerb, ShowsTheCommandThatRepeatsAScore) {
  const std::string folder = RunAll("scores.json", "out");
  for (const int run : {0, 3, 7}) {
    const json shown = Said("show " + folder + " --run " + std::to_string(run));
    const json score = json::parse(Done(shown["command"].get<std::string>().substr(9) + " --json"))["scores"][0];
    EXPECT_EQ(score["x"]["rms"], shown["results"]["rms_x"]);
    EXPECT_EQ(score["y"]["bias"], shown["results"]["bias_y"]);
    EXPECT_EQ(score["flux_rms"], shown["results"]["flux_rms"]);
    EXPECT_EQ(score["failed"], shown["results"]["failed_spots"]);
  }
}

TEST_F(CampaignVerb, ReadsDetectorsAndDisturbancesFromItsOwnFolder) {
  Done("detector " + File("camera.json") + " --new --hot-pixels 50");
  Do("loop", "--frames 20");
  WriteText(File("files.toml"),
            "verb = 'loop'\ncalibration = '.'\nframes = 15\ndisturbance = 'loop/telemetry.fits'\nuse-maps = true\n"
            "detector = 'camera.json'\n[axes]\nphotons = [1000, 5000]\n");
  const std::string folder = RunAll("files.toml", "out");
  const json shown = Said("show " + folder + " --run 1");
  const json by_hand =
      json::parse(Done(shown["command"].get<std::string>().substr(9) + " --json --folder " + File("hand")));
  EXPECT_EQ(by_hand["residual_after"], shown["results"]["residual"]);
  EXPECT_EQ(by_hand["detector"]["electrons_per_unit"].is_number(), true);
  // What they hold belongs to the campaign.
  Do("loop", "--frames 20 --seed 2");
  const Outcome outcome = QuenShs("campaign run " + File("files.toml") + " --output " + folder);
  EXPECT_TRUE(
      outcome.err.starts_with("quen-shs: " + folder + ": holds another campaign; contents of disturbance: it has "))
      << outcome.err;
  Do("loop", "--frames 10");
  ExpectFailure("plan " + File("files.toml"),
                File("loop/telemetry.fits") + ": expected a disturbance of 15 frames at least, found 10");
}

TEST_F(CampaignVerb, MergesToTheSameBytesHoweverItRan) {
  const std::string one = RunAll("scores.json", "one", "--jobs 1");
  RunAll("scores.json", "two", "--shard 2/2");
  const std::string two = RunAll("scores.json", "two", "--shard 1/2");
  Done("campaign merge " + one);
  Done("campaign merge " + two + " --output " + File("tables"));
  EXPECT_TRUE(Bytes(one + "/runs.fits") == Bytes(File("tables/runs.fits")));
  EXPECT_TRUE(Bytes(one + "/points.fits") == Bytes(File("tables/points.fits")));
}

/// Where a shell, or the scheduler, gives some characters a meaning of their own.
TEST_F(CampaignVerb, TasksOfTheBatchScriptMakeAllRuns) {
  const std::string folder = File("it's 5% of\\\"$HOME");
  std::filesystem::create_directory(folder);
  const quen::testing::ScopedCurrentDirectory here(folder);
  std::filesystem::copy(File("scores.json"), "scores.json");
  std::filesystem::create_symlink(File("data"), "data");
  const json written = Said("slurm scores.json --output out --nodes 2 --shards 3");
  EXPECT_EQ(written["runs"], 8);
  EXPECT_EQ(written["tasks"], 3);
  EXPECT_EQ(written["files"], json{"out/slurm.sh"});
  const std::string script = TextOf("out/slurm.sh");
  EXPECT_NE(script.find("\n#SBATCH --array=1-3%2\n"), std::string::npos) << script;
  EXPECT_NE(script.find("\n#SBATCH --exclusive\n"), std::string::npos) << script;
  EXPECT_NE(script.find("5%% of"), std::string::npos) << script;
  for (const char* const task : {"3", "1", "2"}) {
    const Outcome outcome =
        quen::testing::Run("cd out; SLURM_CPUS_ON_NODE=1 SLURM_ARRAY_TASK_ID=" + std::string(task) + " sh slurm.sh");
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  }
  Done("campaign merge out");
  Done("campaign merge " + RunAll("scores.json", "one"));
  EXPECT_TRUE(Bytes("out/runs.fits") == Bytes(File("one/runs.fits")));
}

TEST_F(CampaignVerb, BatchScriptsAskForWhatTheyAreTold) {
  const std::string words = "slurm " + File("scores.json") + " --output " + File("out") + " --nodes 20 --cpus 3";
  const json written = Said(words + " --script " + File("job"));
  EXPECT_EQ(written["tasks"], 8) << "no more than there are runs";
  const std::string script = TextOf(File("job"));
  EXPECT_NE(script.find("\n#SBATCH --array=1-8%8\n"), std::string::npos) << script;
  EXPECT_NE(script.find("\n#SBATCH --cpus-per-task=3\n"), std::string::npos) << script;
  const Outcome streamed = quen::testing::Run(
      "cat " + File("scores.json") + " | " QUEN_SHS " campaign slurm /dev/stdin --nodes 1 --output " + File("out"));
  EXPECT_EQ(streamed.exit_code, 1);
  EXPECT_EQ(streamed.err,
            "quen-shs: /dev/stdin: expected a file, for every task to read, found what this process alone has\n");
  ExpectFailure("slurm " + File("loops.toml") + " --nodes 2 --output " + File("out"),
                File("out") +
                    ": holds another campaign; verb: it has \"score\", this campaign \"loop\"; give another "
                    "folder");
  ExpectFailure("slurm " + File("scores.json") + " --nodes 2 --output '" + File("a\nb") + "'",
                File("a?b") + ": expected a folder whose name is one line, as Slurm wants it");
}

TEST_F(CampaignVerb, DrawsMeansWithTheirErrors) {
  const std::string folder = RunAll("scores.json", "out");
  Done("campaign plot " + folder + " --x photons --y rms --curve engine --png " + File("plot.png"));
  const std::vector<char> picture = Bytes(File("plot.png"));
  ASSERT_GT(picture.size(), 1000U);
  EXPECT_EQ(std::string(picture.begin() + 1, picture.begin() + 4), "PNG");
  ExpectFailure("plot " + folder + " --y rms", "--x: expected one of the axes engine, photons, found none");
  ExpectFailure("plot " + folder + " --x engine --y rms", "--x: expected an axis of numbers, found engine");
  ExpectFailure("plot " + folder + " --x photons --y rsm",
                "--y: expected one of the results rms, bias_x, bias_y, rms_x, rms_y, gain_x, gain_y, offset_x, "
                "offset_y, worst, flux_bias, flux_rms, failed_spots, found rsm");
}

TEST_F(CampaignVerb, SaysWhatIsWrong) {
  ExpectFailure("plan " + File("nothing"), File("nothing") + ": cannot be read: No such file or directory");
  ExpectFailure("status " + folder_.Path(),
                folder_.Path() + ": expected the folder of a campaign, found no campaign.json in it");
  WriteText(File("wrong.toml"), "verb = 'loop'\ncalibration = '.'\n[axes]\ngain = { from = 0, to = 1, step = 0 }\n");
  ExpectFailure("plan " + File("wrong.toml"),
                File("wrong.toml") + ": axes.gain.step: expected a finite number above 0, found 0");
  WriteText(File("far.toml"), "verb = 'loop'\ncalibration = 'far'\n");
  ExpectFailure("plan " + File("far.toml"), "no calibration in " + File("far") + ": " + File("far/data/M2S.fits") +
                                                " is missing; 'quen-shs calibrate " + File("far") +
                                                "' makes a synthetic one");
  RunAll("loops.toml", "out", "--shard 1/16");
  ExpectFailure(
      "run " + File("scores.json") + " --output " + File("out"),
      File("out") + ": holds another campaign; verb: it has \"loop\", this campaign \"score\"; give another folder");
  ExpectFailure("show " + File("out") + " --run 16", "--run: expected a run from 0 to 15, found 16");
  WriteText(File("file"), "");
  ExpectFailure("run " + File("loops.toml") + " --output " + File("file"),
                "cannot make " + File("file") + ": Not a directory");
}

TEST_F(CampaignVerb, AFullDiskIsASentenceAndLosesNothing) {
  const Outcome outcome = quen::testing::Run("ulimit -f 3; " QUEN_SHS " campaign run " + File("loops.toml") +
                                             " --jobs 1 --output " + File("out"));
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.err, "quen-shs: cannot write " + File("out/runs-1-of-1") + ": File too large\n");
  const json status = Said("status " + File("out"));
  EXPECT_GT(status["done"], 0);
  EXPECT_GT(status["missing"], 0);
  RunAll("loops.toml", "out");
  const std::string plain = RunAll("loops.toml", "plain");
  Done("campaign merge " + File("out"));
  Done("campaign merge " + plain);
  EXPECT_TRUE(Bytes(plain + "/runs.fits") == Bytes(File("out/runs.fits")));
}

// --- One set of rules

/// The verbs' own arguments.
const quen::tool::CommandLine& Line() {
  static const quen::tool::CommandLine& line = *[] {
    auto* const made = new quen::tool::CommandLine;  // NOLINT(cppcoreguidelines-owning-memory): verbs refer to it
    quen::tool::AddVerbs(*made);
    return made;
  }();
  return line;
}

const quen::tool::Verb& VerbNamed(const std::string& name) {
  return *std::ranges::find(Line().Verbs(), name, &quen::tool::Verb::name);
}

TEST(CampaignRules, AreThoseOfTheVerbs) {
  for (const std::string& name : quen::workbench::CampaignVerbs()) {
    const quen::workbench::VerbRules& rules = quen::workbench::RulesOf(name);
    const quen::tool::Verb& verb = VerbNamed(name);
    std::size_t known = 0;
    for (const quen::tool::Argument& argument : verb.arguments) {
      const std::string option = argument.name.starts_with("--") ? argument.name.substr(2) : argument.name;
      const quen::workbench::OptionRule* const rule = rules.Find(option);
      if (rule == nullptr) continue;
      ++known;
      const auto digits = [](double number) { return fmt::format("{}", number); };
      const std::string range =
          rule->limits ? digits(rule->limits->lowest) + " to " + digits(rule->limits->highest) : "";
      EXPECT_EQ(argument.range, range) << name << " " << option;
    }
    EXPECT_EQ(known, rules.options.size()) << "all options of a campaign are the verb's";
    // What excludes each other.
    std::size_t pairs = 0;
    for (const std::vector<std::string>& names : verb.alternatives) {
      if (names.size() != 2 || rules.Find(names[0].substr(2)) == nullptr || rules.Find(names[1].substr(2)) == nullptr)
        continue;
      ++pairs;
      const std::pair pair(names[0].substr(2), names[1].substr(2));
      EXPECT_NE(std::ranges::find(rules.alternatives, pair), rules.alternatives.end())
          << pair.first << ", " << pair.second;
    }
    EXPECT_EQ(pairs, rules.alternatives.size());
  }
}

TEST(CampaignRules, DefaultsAreThoseOfTheVerbs) {
  for (const std::string& name : quen::workbench::CampaignVerbs()) {
    const quen::workbench::VerbRules& rules = quen::workbench::RulesOf(name);
    for (const quen::tool::Argument& argument : VerbNamed(name).arguments) {
      const quen::workbench::OptionRule* const rule =
          argument.name.starts_with("--") ? rules.Find(argument.name.substr(2)) : nullptr;
      if (rule == nullptr) continue;
      std::visit(
          [&](auto member) {
            const auto& value = rules.defaults.*member;
            if constexpr (std::is_arithmetic_v<std::remove_cvref_t<decltype(value)>> &&
                          !std::is_same_v<std::remove_cvref_t<decltype(value)>, bool>) {
              EXPECT_EQ(argument.otherwise, fmt::format("{}", value)) << name << " " << rule->name;
            }
          },
          rule->member);
    }
  }
}

}  // namespace
