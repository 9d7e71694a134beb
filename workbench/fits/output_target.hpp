#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>
#include <vector>

#include "workbench/fits/descriptor.hpp"

/// @file
/// Where an output goes: exactly to the file that its name leads to.

namespace quen::workbench {

/// A name that a user gave for an output, looked at before any work.
struct OutputTarget {
  std::string name;          ///< as the user wrote it
  std::string path;          ///< the same after all symbolic links, which stay what they are
  std::optional<FileId> id;  ///< of what is there
  mode_t mode = 0;           ///< permissions of that
  uid_t owner = 0;           ///< of that
  gid_t group = 0;           ///< of that
  mode_t type = 0;           ///< what it is, for S_ISREG() and its like
  bool is_stream = false;    ///< a pipe, a device, or what the process has open: written to, never replaced
  int own_descriptor = -1;   ///< its number if it is the standard output or the standard error of the process

  [[nodiscard]] bool Exists() const { return id.has_value(); }
  /// Whether both names lead to the same file, or this file would have to be a folder for the other one to be in.
  [[nodiscard]] bool IsInTheWayOf(const OutputTarget& other) const;
};

/// @throws std::runtime_error  an empty name, a folder, a name below something that is not a folder, or one in a folder
///                             that may not be written to
OutputTarget FindTarget(const std::string& name);

/// @throws std::runtime_error  two of the names lead to the same file
void RefuseToWriteTwice(const std::vector<OutputTarget>& targets);

/// @throw std::runtime_error  "cannot write NAME: ", and the words for the system's error `code`
[[noreturn]] void RefuseToWrite(const std::string& name, int code);

}  // namespace quen::workbench
