#include "workbench/fits/output_target.hpp"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace quen::workbench {
namespace {

namespace fs = std::filesystem;

fs::path FolderOf(const fs::path& path) { return path.has_parent_path() ? path.parent_path() : fs::path("."); }

/// Whether a link stands for a file that a process has open: what it says is no path to be trusted.
bool IsOpenFile(const fs::path& link) {
  struct statfs status {};
  return statfs(FolderOf(link).c_str(), &status) == 0 && status.f_type == PROC_SUPER_MAGIC;
}

/// Where a name leads to at last.
struct Destination {
  fs::path path;
  bool is_open_file = false;
};

Destination Follow(const std::string& name) {
  constexpr int kMostLinks = 40;  // as the system has it
  Destination destination = {name};
  for (int links = 0; fs::is_symlink(fs::symlink_status(destination.path)); ++links) {
    if (links == kMostLinks) RefuseToWrite(name, ELOOP);
    destination.is_open_file = IsOpenFile(destination.path);
    if (destination.is_open_file) return destination;
    destination.path = FolderOf(destination.path) / fs::read_symlink(destination.path);
  }
  destination.path = fs::weakly_canonical(fs::absolute(FolderOf(destination.path))) / destination.path.filename();
  return destination;
}

/// What the process has open already, under any name.
int OwnDescriptor(const FileId& id) {
  for (const int descriptor : {STDOUT_FILENO, STDERR_FILENO}) {
    struct stat status {};
    if (fstat(descriptor, &status) == 0 && IdOf(status) == id) return descriptor;
  }
  return -1;
}

/// @throws std::runtime_error  no file can be made at this path, nor the folders that it lacks
void RequireRoom(const std::string& name, const fs::path& path) {
  fs::path folder = FolderOf(path);
  struct stat status {};
  while (stat(folder.c_str(), &status) != 0) {
    if (errno == ENOTDIR) throw std::runtime_error("cannot make " + folder.string() + ": " + std::strerror(ENOTDIR));
    if (errno != ENOENT || folder == folder.parent_path()) RefuseToWrite(name, errno);
    folder = FolderOf(folder);
  }
  if (!S_ISDIR(status.st_mode)) {
    throw std::runtime_error("cannot make " + FolderOf(path).string() + ": " + std::strerror(ENOTDIR));
  }
  if (faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) != 0) RefuseToWrite(name, errno);
}

/// Whether a path is another's folder, or that folder's, and so on.
bool IsAbove(const fs::path& folder, const fs::path& path) {
  for (fs::path above = path.parent_path(); above != above.parent_path(); above = above.parent_path()) {
    if (above == folder) return true;
  }
  return false;
}

}  // namespace

void RefuseToWrite(const std::string& name, int code) {
  throw std::runtime_error("cannot write " + name + ": " + std::generic_category().message(code));
}

bool OutputTarget::IsInTheWayOf(const OutputTarget& other) const {
  const bool is_same = id && other.id ? *id == *other.id : path == other.path;
  return is_same || IsAbove(path, other.path);
}

OutputTarget FindTarget(const std::string& name) {
  if (name.empty()) throw std::runtime_error("expected the name of a file to write to, found an empty one");
  OutputTarget target;
  target.name = name;
  struct stat status {};
  const int code = stat(name.c_str(), &status) == 0 ? 0 : errno;
  if (code != 0 && code != ENOENT && code != ENOTDIR) RefuseToWrite(name, code);
  if ((code == 0 && S_ISDIR(status.st_mode)) || name.back() == '/') {
    throw std::runtime_error("cannot write " + name + ": it names a folder; give the name of a file");
  }
  try {
    const Destination destination = Follow(name);
    target.path = destination.path.string();
    if (code == 0) {
      target.id = IdOf(status);
      target.mode = status.st_mode & ALLPERMS;
      target.owner = status.st_uid;
      target.group = status.st_gid;
      target.type = status.st_mode;
      target.own_descriptor = OwnDescriptor(*target.id);
      target.is_stream = !S_ISREG(status.st_mode) || destination.is_open_file || target.own_descriptor >= 0;
    }
  } catch (const fs::filesystem_error& error) {
    RefuseToWrite(name, error.code().value());
  }
  if (!target.is_stream) RequireRoom(name, target.path);
  return target;
}

void RefuseToWriteTwice(const std::vector<OutputTarget>& targets) {
  for (const OutputTarget& target : targets) {
    for (const OutputTarget& other : targets) {
      if (&target == &other || !target.IsInTheWayOf(other)) continue;
      throw std::runtime_error("cannot write both " + target.name + " and " + other.name +
                               ": give each output a file of its own");
    }
  }
}

}  // namespace quen::workbench
