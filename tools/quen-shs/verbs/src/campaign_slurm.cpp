#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

#include "tools/quen-shs/cli/report.hpp"
#include "tools/quen-shs/verbs/src/campaign.hpp"
#include "tools/quen-shs/verbs/src/common_arguments.hpp"
#include "workbench/campaign/campaign_folder.hpp"
#include "workbench/campaign/slurm_script.hpp"
#include "workbench/fits/staged_file.hpp"

namespace quen::tool {
namespace {

constexpr int kMostTasks = 1000;  // of an array, where nobody has told Slurm otherwise

struct SlurmArguments {
  std::string file;
  std::string output;
  std::string script;  ///< slurm.sh in the output's folder if empty
  int nodes = 1;
  int shards = 0;  ///< as many as nodes if 0
  int processors = 0;
  bool json = false;
};

workbench::Campaign CampaignForTasks(const std::string& name) {
  const workbench::InputFile file(name);
  if (workbench::IsStream(file)) {
    throw std::runtime_error(name + ": expected a file, for every task to read, found what this process alone has");
  }
  return workbench::ReadCampaign(file);
}

void WriteSlurmScript(const SlurmArguments& command) {
  const workbench::CampaignInputs inputs(CampaignForTasks(command.file));
  const workbench::CampaignFolder folder = workbench::PrepareFolder(command.output, inputs);
  const std::uint64_t runs = inputs.Of().Runs();
  const int wanted = command.shards == 0 ? command.nodes : command.shards;
  const int shards = static_cast<int>(std::min<std::uint64_t>(static_cast<std::uint64_t>(wanted), runs));
  const std::filesystem::path results = std::filesystem::canonical(command.output);
  const std::string script =
      command.script.empty() ? (std::filesystem::path(command.output) / "slurm.sh").string() : command.script;
  workbench::StagedFiles files({script});
  files.Give(script, workbench::BatchScript({.tool = std::filesystem::canonical("/proc/self/exe"),
                                             .campaign = std::filesystem::absolute(command.file).lexically_normal(),
                                             .folder = results,
                                             .nodes = command.nodes,
                                             .shards = shards,
                                             .processors = command.processors}));
  files.Commit();
  Report report;
  report.Add("runs", runs, "runs", fmt::format("{}", runs));
  report.Add(
      "tasks", shards, "tasks",
      fmt::format("{} ({} runs each at most, {} at the same time)", shards,
                  workbench::Shard{1, static_cast<std::uint64_t>(shards)}.Size(runs), std::min(command.nodes, shards)));
  report.AddFiles(files);
  report.AddLine("submit it               sbatch " + script);
  report.Print(command.json);
}

}  // namespace

Verb CampaignSlurmVerb() {
  const auto command = std::make_shared<SlurmArguments>();
  Argument shards = Number("--shards", "Parts of the campaign, a task each", "", {1.0, kMostTasks}, command->shards);
  shards.otherwise = "as many as nodes";
  Argument processors =
      Number("--cpus", "Processors of its node that a task takes", "", {1.0, 1024.0}, command->processors);
  processors.otherwise = "all";
  return {
      .name = "slurm",
      .summary = "Write the batch script that runs a campaign under Slurm",
      .details = R"(
Checks the campaign, makes its folder, and writes a script for sbatch: an array job whose tasks run a shard each, as
'quen-shs campaign run' does, with as many threads as they have processors. Every node must see the campaign's file, its
calibration, the folder and this program under the same names.

A task costs the scheduler a second or more, so let it last for minutes. What tasks have finished is kept when they are
killed: submit the script again, and they go on. Options of sbatch's command line stand over those in the script.)",
      .examples = {"quen-shs campaign slurm gains.toml --output gains --nodes 4",
                   "sbatch --partition=night --time=8:00:00 gains/slurm.sh"},
      .arguments = {CampaignFile(command->file), CampaignOutput(command->output),
                    Required(
                        Number("--nodes", "Nodes that work at the same time", "", {1.0, kMostTasks}, command->nodes)),
                    shards, processors, File("--script", "Script", "slurm.sh in the output's folder", command->script),
                    JsonFlag(command->json)},
      .action = [command] { WriteSlurmScript(*command); }};
}

}  // namespace quen::tool
