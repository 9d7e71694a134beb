#include "pim/helper.hpp"

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <system_error>

namespace pim {

std::string Helper::FindFile(const std::string& name) {
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
