#pragma once

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <system_error>

/// @file
/// The search that the stand-in of pim::Helper::FindFile does, for a replacement that falls back on it. Internal to the
/// library and its tool; hosts call pim::Helper.

namespace pim {

/// As pim::Helper::FindFile says.
inline std::string FindOnConfigurationPath(const std::string& name) {
  const char* const directories = std::getenv("CFGPATH");
  if (directories == nullptr || name.empty()) return {};
  std::istringstream list(directories);
  for (std::string directory; std::getline(list, directory, ':');) {
    if (directory.empty()) continue;
    const std::filesystem::path candidate = std::filesystem::path(directory) / name;
    std::error_code unreadable;
    if (std::filesystem::exists(candidate, unreadable)) return candidate.string();
  }
  return {};
}

}  // namespace pim
