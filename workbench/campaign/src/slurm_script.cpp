#include "workbench/campaign/slurm_script.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "workbench/campaign/src/shell_word.hpp"

namespace quen::workbench {
namespace {

/// In the name of a task's log a per cent sign begins what Slurm puts in: the numbers of the job and of the task.
std::string LogsIn(const std::string& folder) {
  if (folder.find('\n') != std::string::npos) {
    throw std::runtime_error(folder + ": expected a folder whose name is one line, as Slurm wants it");
  }
  std::string doubled;
  for (const char c : folder) doubled += c == '%' ? std::string("%%") : std::string(1, c);
  return doubled + "/slurm-%A-%a.log";
}

}  // namespace

std::string BatchScript(const SlurmJob& job) {
  const int nodes = std::min(job.nodes, job.shards);
  const std::string share =
      job.processors == 0 ? std::string("--exclusive") : fmt::format("--cpus-per-task={}", job.processors);
  return fmt::format(R"(#!/bin/sh
# A campaign as an array job: each task runs a shard. Whatever a task finishes is kept when it is killed, and submitting
# this script again goes on. Options of sbatch's command line, --partition and --time for instance, stand over these.
#SBATCH --job-name=campaign
#SBATCH --array=1-{shards}%{nodes}
#SBATCH --nodes=1
#SBATCH --ntasks=1
#SBATCH {share}
#SBATCH --requeue
#SBATCH --open-mode=append
#SBATCH --output={logs}
exec {tool} campaign run {campaign} \
  --output {folder} \
  --shard "$SLURM_ARRAY_TASK_ID/{shards}" --jobs "$SLURM_CPUS_ON_NODE"
)",
                     fmt::arg("shards", job.shards), fmt::arg("nodes", nodes), fmt::arg("share", share),
                     fmt::arg("logs", ShellWord(LogsIn(job.folder))), fmt::arg("tool", ShellWord(job.tool)),
                     fmt::arg("campaign", ShellWord(job.campaign)), fmt::arg("folder", ShellWord(job.folder)));
}

}  // namespace quen::workbench
