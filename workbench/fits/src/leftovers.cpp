#include "workbench/fits/src/leftovers.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "workbench/fits/transfer.hpp"

namespace quen::workbench {
namespace {

constexpr std::string_view kBeginning = ".quen-shs-";
constexpr std::string_view kEnd = ".part";
constexpr std::size_t kDigits = 32;

std::string UnforeseeableName() {
  std::array<std::uint64_t, 2> random{};
  if (getrandom(random.data(), sizeof(random), 0) != static_cast<ssize_t>(sizeof(random))) {
    throw std::system_error(errno, std::generic_category());
  }
  return fmt::format("{}{:016x}{:016x}{}", kBeginning, random[0], random[1], kEnd);
}

bool IsUnfinishedName(std::string_view name) {
  if (name.size() != kBeginning.size() + kDigits + kEnd.size()) return false;
  if (!name.starts_with(kBeginning) || !name.ends_with(kEnd)) return false;
  return std::ranges::all_of(name.substr(kBeginning.size(), kDigits),
                             [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

/// Whether a file still has a name. Between its making and its locking somebody may have taken it for a leftover.
bool HasName(const Descriptor& file) {
  struct stat status {};
  return fstat(file.Number(), &status) != 0 || status.st_nlink > 0;
}

}  // namespace

UnfinishedFile MakeUnfinished(const std::string& folder, unsigned int mode) {
  while (true) {
    UnfinishedFile unfinished = {(std::filesystem::path(folder) / UnforeseeableName()).string(), Descriptor()};
    unfinished.file = Descriptor(Open(unfinished.path, O_RDWR | O_CREAT | O_EXCL, mode));
    if (!unfinished.file.IsOpen()) {
      if (errno == EEXIST) continue;
      throw std::system_error(errno, std::generic_category());
    }
    static_cast<void>(flock(unfinished.file.Number(), LOCK_EX));  // not every file system has locks
    if (HasName(unfinished.file)) return unfinished;
  }
}

Descriptor Locked(const std::string& path) {
  Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
  if (!file.IsOpen() || flock(file.Number(), LOCK_EX | LOCK_NB) != 0) return Descriptor();
  return file;
}

void RemoveLeftovers(const std::string& folder) {
  std::error_code unreadable;
  for (std::filesystem::directory_iterator entry(folder, unreadable), end; !unreadable && entry != end;
       entry.increment(unreadable)) {
    if (!IsUnfinishedName(entry->path().filename().string())) continue;
    const Descriptor file = Locked(entry->path().string());
    struct stat status {};
    if (file.IsOpen() && fstat(file.Number(), &status) == 0 && S_ISREG(status.st_mode)) unlink(entry->path().c_str());
  }
}

}  // namespace quen::workbench
