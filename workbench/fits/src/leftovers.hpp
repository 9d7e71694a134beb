#pragma once

#include <string>

#include "workbench/fits/descriptor.hpp"

/// @file
/// Files that are not finished. They are locked while somebody is at work on them: those that are not, a run that was
/// killed has left behind.

namespace quen::workbench {

/// A file that is not finished, open for reading and writing, and locked where the file system can lock.
struct UnfinishedFile {
  std::string path;
  Descriptor file;
};

/// Makes one under a name that nobody can foresee.
/// @param folder  to make it in
/// @param mode    permissions, less what the umask takes
/// @throws std::system_error  it cannot be made
UnfinishedFile MakeUnfinished(const std::string& folder, unsigned int mode);

/// Removes what killed runs have left in a folder, as far as that is allowed. Files of other names are left alone.
void RemoveLeftovers(const std::string& folder);

/// Locks a file against RemoveLeftovers, if it can be opened and nobody else has it locked.
Descriptor Locked(const std::string& path);

}  // namespace quen::workbench
