#pragma once

#include <string>

namespace quen::workbench {

/// A campaign as an array job of the scheduler Slurm: a task per shard.
struct SlurmJob {
  std::string tool;      ///< the program, "/usr/local/bin/quen-shs"
  std::string campaign;  ///< its file
  std::string folder;    ///< of its results
  int nodes = 1;         ///< that work at the same time
  int shards = 1;
  int processors = 0;  ///< of its node that a task takes; all of them if 0
};

/// The batch script of a job, for sbatch. All paths in it are as they are in the job, so give absolute ones.
/// @throws std::runtime_error  the folder's name has a line break, for which a directive of a script has no room
std::string BatchScript(const SlurmJob& job);

}  // namespace quen::workbench
