#pragma once

#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>

/// @file
/// What the system says where it refuses. Internal to the library.

namespace quen::stream {

/// What could not be done, with the reason that errno tells.
inline std::runtime_error RefusalOfSystem(const std::string& what) {
  return std::runtime_error(what + ": " + std::generic_category().message(errno));
}

}  // namespace quen::stream
