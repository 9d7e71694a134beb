#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <thread>

#include "tools/quen-shs/cli/progress.hpp"
#include "tools/quen-shs/cli/report.hpp"
#include "tools/quen-shs/verbs/src/campaign.hpp"
#include "tools/quen-shs/verbs/src/common_arguments.hpp"
#include "tools/quen-shs/verbs/verbs.hpp"
#include "workbench/campaign/campaign.hpp"
#include "workbench/campaign/campaign_folder.hpp"
#include "workbench/campaign/execution.hpp"
#include "workbench/campaign/result_tables.hpp"
#include "workbench/campaign/runner.hpp"
#include "workbench/campaign/status.hpp"
#include "workbench/fits/interruption.hpp"
#include "workbench/fits/staged_file.hpp"

namespace quen::tool {

Argument CampaignFile(std::string& file) { return Positional("FILE", "Campaign, in TOML or JSON", file); }

Argument CampaignFolder(std::string& folder) { return Positional("DIR", "Folder of the campaign", folder); }

Argument CampaignOutput(std::string& folder) {
  return Required(Folder("--output", "Folder for the results; made if missing", "", folder));
}

namespace {

constexpr int kMostJobs = 1024;

int Processors() { return std::clamp(static_cast<int>(std::thread::hardware_concurrency()), 1, kMostJobs); }

/// "40 s", "12 min", "3.5 h", "6 days".
std::string Duration(double seconds) {
  constexpr double kMinute = 60.0;
  constexpr double kHour = 3600.0;
  constexpr double kDay = 86400.0;
  if (seconds < 2 * kMinute) return fmt::format("{:.0f} s", seconds);
  if (seconds < 2 * kHour) return fmt::format("{:.0f} min", seconds / kMinute);
  if (seconds < 2 * kDay) return fmt::format("{:.1f} h", seconds / kHour);
  return fmt::format("{:.0f} days", seconds / kDay);
}

Argument Jobs(int& jobs) {
  return Number("--jobs", "Runs at the same time, a thread each", "", {1.0, kMostJobs}, jobs);
}

// --- plan

struct PlanArguments {
  std::string file;
  int jobs = Processors();
  bool json = false;
};

void Plan(const PlanArguments& command) {
  const workbench::CampaignInputs inputs(workbench::ReadCampaign(workbench::InputFile(command.file)));
  const workbench::Campaign& campaign = inputs.Of();
  const double seconds = workbench::ExpectedSeconds(inputs) / command.jobs;
  Report report;
  report.Add("verb", campaign.verb, "verb", campaign.verb);
  Json axes = Json::object();
  for (const workbench::Axis& axis : campaign.axes) {
    axes[axis.Name()] = axis.Size();
    const std::string first = workbench::InWords(axis.At(0));
    const std::string last = workbench::InWords(axis.At(axis.Size() - 1));
    report.AddLine(fmt::format("{:<24}{} values, {} to {}", "axis " + axis.Name(), axis.Size(), first, last));
  }
  report.Add("axes", axes);
  report.Add("points", campaign.Points(), "points", fmt::format("{}", campaign.Points()));
  report.Add("repeats", campaign.repeats, "repeats", fmt::format("{}", campaign.repeats));
  report.Add("runs", campaign.Runs(), "runs", fmt::format("{}", campaign.Runs()));
  report.Add("expected_seconds", seconds, "expected time",
             fmt::format("{} with {} jobs here", Duration(seconds), command.jobs));
  report.Print(command.json);
}

Verb PlanVerb() {
  const auto command = std::make_shared<PlanArguments>();
  return {.name = "plan",
          .summary = "Check a campaign, and tell how long it will take",
          .details = R"(
Checks the campaign whole, each value by the rules of the verb that it runs, and the files that it names. The expected
time comes from a trial of some of its points.)",
          .examples = {"quen-shs campaign plan gains.toml"},
          .arguments = {CampaignFile(command->file), Jobs(command->jobs), JsonFlag(command->json)},
          .action = [command] { Plan(*command); }};
}

// --- run

struct RunArguments {
  std::string file;
  std::string output;
  std::string shard = "1/1";
  int jobs = Processors();
  bool retry_failed = false;
  bool json = false;
};

void RunIt(const RunArguments& command) {
  const workbench::Shard shard = workbench::ParseShard(command.shard);
  const workbench::CampaignInputs inputs(workbench::ReadCampaign(workbench::InputFile(command.file)));
  const workbench::CampaignFolder folder = workbench::PrepareFolder(command.output, inputs);
  const workbench::WorkList work = workbench::WhatIsToDo(folder, shard, command.retry_failed);
  const std::uint64_t size = shard.Size(inputs.Of().Runs());
  const std::uint64_t were_there = size - work.runs;
  workbench::ExecutionCounts counts;
  double rate = 0.0;
  try {
    Progress progress(static_cast<int>(work.runs), "run");
    counts = workbench::Execute(inputs, folder, work, command.jobs, [&] { progress.Step(); });
    rate = progress.Rate();
  } catch (const workbench::Interrupted&) {
    throw workbench::Interrupted("interrupted; what is finished is kept, and the same command goes on");
  }
  Report report;
  report.Add("runs", size, "runs", fmt::format("{} (shard {} of {})", size, shard.number, shard.of));
  report.Add("were_there", were_there, "were there", fmt::format("{}", were_there));
  report.Add("finished", counts.finished, "finished now", fmt::format("{}", counts.finished));
  report.Add("failed", counts.failed, "failed of these", fmt::format("{}", counts.failed));
  report.Add("damaged", work.damaged);
  if (work.damaged > 0) {
    report.AddLine(
        fmt::format("damaged results, which have been made again: {}, the first {}", work.damaged, work.first_damaged));
  }
  report.Add("runs_per_second", rate, "speed", fmt::format("{:.3g} runs/s", rate));
  report.Print(command.json);
}

Verb RunVerb() {
  const auto command = std::make_shared<RunArguments>();
  return {.name = "run",
          .summary = "Run what is missing of a campaign",
          .details = R"(
Makes the runs that are not yet in the folder. It can be ended at any time, by Ctrl-C too: only the runs that it is at
are lost, and the same command goes on. Any number of processes, here or on other machines that see the folder, may run
shards of the same campaign; what they find together is the same, byte by byte, as what one finds alone.

A run that fails, a loop that diverges for instance, is a result with its sentence. A result that is damaged is made
again. Another campaign in the same folder is refused.)",
          .examples = {"quen-shs campaign run gains.toml --output gains",
                       "quen-shs campaign run gains.toml --output gains --shard 3/8 --jobs 1"},
          .arguments = {CampaignFile(command->file), CampaignOutput(command->output), Jobs(command->jobs),
                        Checked(
                            "--shard", "Part I of N of the runs, I from 1 to N", "I/N",
                            [](const std::string& text) { workbench::ParseShard(text); }, command->shard),
                        Flag("--retry-failed", "Make the runs that have failed again, too", command->retry_failed),
                        JsonFlag(command->json)},
          .action = [command] { RunIt(*command); }};
}

// --- status

struct FolderArguments {
  std::string folder;
  bool json = false;
};

void Status(const FolderArguments& command) {
  const workbench::CampaignStatus status = workbench::StatusOf(workbench::OpenFolder(command.folder));
  Report report;
  const auto count = [&](const std::string& key, std::uint64_t number) {
    report.Add(key, number, key, fmt::format("{}", number));
  };
  count("runs", status.runs);
  count("done", status.done);
  count("failed", status.failed);
  count("missing", status.missing);
  count("running", status.running);
  const auto list = [&](const std::string& key, const char* what, const auto& runs) {
    Json all = Json::array();
    for (const auto& [run, text] : runs) {
      all.push_back({{"run", run}, {what, text}});
      report.AddLine(fmt::format("  {} run {}: {}", key, run, text));
    }
    return all;
  };
  report.Add("damaged", status.damaged);
  report.Add("first_failures", list("failed", "sentence", status.first_failures));
  report.Add("first_damages", list("damaged", "file", status.first_damages));
  report.Add("runs_per_second", status.rate);
  report.Add("seconds_left", status.seconds_left ? Json(*status.seconds_left) : Json());
  if (status.rate > 0.0) report.AddLine(fmt::format("{:<24}{:.3g} runs/s", "speed", status.rate));
  if (status.seconds_left) report.AddLine(fmt::format("{:<24}{}", "time left", Duration(*status.seconds_left)));
  report.Print(command.json);
}

Verb StatusVerb() {
  const auto command = std::make_shared<FolderArguments>();
  return {.name = "status",
          .summary = "Tell how far a campaign is",
          .details = R"(
Tells how many runs are done, have failed, are missing or at work, with the sentences of the first that have failed and
the files of the first that are damaged. Others may be at work on the campaign meanwhile.)",
          .examples = {"quen-shs campaign status gains"},
          .arguments = {CampaignFolder(command->folder), JsonFlag(command->json)},
          .action = [command] { Status(*command); }};
}

// --- merge

struct MergeArguments {
  std::string folder;
  std::string output;  ///< folder; that of the campaign if empty
  bool takes_part = false;
  bool json = false;
};

void Merge(const MergeArguments& command) {
  const std::filesystem::path output = command.output.empty() ? command.folder : command.output;
  const std::string runs = (output / "runs.fits").string();
  const std::string points = (output / "points.fits").string();
  workbench::StagedFiles files({runs, points});
  const workbench::CampaignFolder folder = workbench::OpenFolder(command.folder);
  const auto into = [&files](const std::string& name) {
    return [&files, name](std::string_view bytes, std::size_t position) { files.GiveAt(name, bytes, position); };
  };
  workbench::MergeResults(folder, command.takes_part, into(runs), into(points));
  files.Commit();
  Report report;
  report.AddFiles(files);
  report.Print(command.json);
}

Verb MergeVerb() {
  const auto command = std::make_shared<MergeArguments>();
  return {.name = "merge",
          .summary = "Make tables of a campaign's results",
          .details = R"(
Writes runs.fits, a row per run with its axes, its seed and its results, and points.fits, a row per point with the mean
of each result over its repeats, the scatter of a run (the standard deviation, with n - 1), the standard error of the
mean, and the number of failures, which the means leave out. The bytes of both depend on the campaign alone.)",
          .examples = {"quen-shs campaign merge gains"},
          .arguments = {CampaignFolder(command->folder),
                        Folder("--output", "Folder for the tables; made if missing", "DIR", command->output),
                        Flag("--partial", "Make tables of the runs that are there, though others are missing",
                             command->takes_part),
                        JsonFlag(command->json)},
          .action = [command] { Merge(*command); }};
}

// --- show

struct ShowArguments {
  std::string folder;
  std::size_t run = 0;
  bool json = false;
};

void Show(const ShowArguments& command) {
  const workbench::CampaignFolder folder = workbench::OpenFolder(command.folder);
  const workbench::Campaign& campaign = folder.campaign;
  if (command.run >= campaign.Runs()) {
    throw std::runtime_error(
        fmt::format("--run: expected a run from 0 to {}, found {}", campaign.Runs() - 1, command.run));
  }
  const workbench::RunRecord record = folder.results.Read(command.run, 1).front();
  const bool is_there = !record.values.empty();
  Report report;
  report.Add("run", command.run);
  report.Add("command", campaign.CommandOf(command.run));
  report.AddLine(campaign.CommandOf(command.run));
  Json results = Json::object();
  for (std::size_t k = 0; k < record.values.size(); ++k) {
    const workbench::ResultColumn& column = campaign.Rules().results[k];
    results[column.name] = record.values[k];
    const char* const gap = *column.unit == '\0' ? "" : " ";
    report.AddLine(fmt::format("{:<24}{}{}{}", column.name, record.values[k], gap, column.unit));
  }
  report.Add("results", is_there ? results : Json());
  report.Add("failure", record.failure);
  if (!record.failure.empty()) report.AddLine(fmt::format("{:<24}{}", "failed", record.failure));
  if (!is_there) report.AddLine("its result is missing");
  report.Print(command.json);
}

Verb ShowVerb() {
  const auto command = std::make_shared<ShowArguments>();
  constexpr int kMost = static_cast<int>(workbench::kMostRuns);
  return {.name = "show",
          .summary = "Print the command that repeats a run by hand",
          .details = "Prints a command that does the same as a run of the campaign, and the results that are there.",
          .examples = {"quen-shs campaign show gains --run 1234"},
          .arguments = {CampaignFolder(command->folder),
                        Number("--run", "Number of the run", "", {0.0, kMost}, command->run), JsonFlag(command->json)},
          .action = [command] { Show(*command); }};
}

}  // namespace

void AddCampaign(CommandLine& line) {
  line.Add({.name = "campaign",
            .summary = "Run a verb with many options, many times over",
            .details = R"(
A campaign is a file that says which verb is run, with which values of its options: every combination of its axes, each
with some repeats that differ in their seeds. It is TOML or JSON; 'quen-shs campaign plan' checks it.)",
            .list = R"(A campaign:
  verb = "loop"                      # or "score"
  calibration = "sensor"             # from the campaign's own folder on, as all files
  repeats = 20                       # runs of each point [1]
  seed = 1                           # from which those of the runs follow [1]
  frames = 1000                      # and any other option of the verb
  [axes]                             # every combination
  gain = { from = 0.1, to = 0.9, step = 0.1 }
  delay = [1, 2]
  engine = ["weighted", "gaussian-fit"]
)",
            .examples = {"quen-shs campaign plan gains.toml", "quen-shs campaign run gains.toml --output gains"},
            .verbs = {PlanVerb(), RunVerb(), StatusVerb(), MergeVerb(), CampaignPlotVerb(), ShowVerb(),
                      CampaignSlurmVerb()}});
}

}  // namespace quen::tool
