#pragma once

#include <array>
#include <cstddef>
#include <ostream>

/// @file
/// Disks that fail. Link testing/faulty_stdio.cpp, which stands in for fread and fwrite, through which CFITSIO reaches
/// its files, and for write(2), through which the tool does.

namespace quen::testing {

enum class Fault {
  kWriteError,  ///< one write fails, the next ones work
  kFullDisk,    ///< that write and all that follow fail
  kReadError,   ///< one read gives nothing
  kShortRead,   ///< one read gives half of what it was asked for
};

/// The fault's name, for the names of tests.
inline std::ostream& operator<<(std::ostream& out, Fault fault) {
  constexpr std::array<const char*, 4> kNames = {"write error", "full disk", "read error", "short read"};
  return out << kNames.at(static_cast<std::size_t>(fault));
}

/// While it lives, the `nth` call (counted from 1) of its kind fails; 0: none does.
class FaultyDisk {
 public:
  FaultyDisk(Fault fault, std::size_t nth);
  ~FaultyDisk();
  FaultyDisk(const FaultyDisk&) = delete;
  FaultyDisk& operator=(const FaultyDisk&) = delete;
  FaultyDisk(FaultyDisk&&) = delete;
  FaultyDisk& operator=(FaultyDisk&&) = delete;

  /// Calls of the fault's kind so far.
  [[nodiscard]] static std::size_t Calls();
};

}  // namespace quen::testing
