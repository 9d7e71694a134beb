#pragma once

#include <fstream>
#include <string>
#include <string_view>

namespace quen::testing {

/// Whether a shared library whose file's name begins so is in this process.
inline bool IsLoaded(std::string_view library) {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.find("/" + std::string(library)) != std::string::npos) return true;
  }
  return false;
}

}  // namespace quen::testing
