#include "workbench/fits/staged_file.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "workbench/fits/interruption.hpp"
#include "workbench/fits/src/gzip.hpp"
#include "workbench/fits/src/leftovers.hpp"
#include "workbench/fits/transfer.hpp"

namespace quen::workbench {
namespace {

std::string FolderOf(const std::string& path) { return std::filesystem::path(path).parent_path().string(); }

/// @return  0, or why the two names could not be exchanged, or the first not be renamed where nothing is at the second
int Exchange(const std::string& one, const std::string& other) {
  return renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE) == 0 ? 0 : errno;
}
int RenameToNew(const std::string& from, const std::string& to) {
  return renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0 ? 0 : errno;
}

/// Whether the file system, or the kernel, has only the plain rename.
bool IsUnknown(int code) { return code == EINVAL || code == ENOSYS || code == EOPNOTSUPP; }

[[noreturn]] void RefuseAsNotWhole(const std::string& name) {
  throw std::runtime_error("cannot write " + name +
                           ": read back, it is not whole; look after the disk and run this again");
}

// --- Streams

/// While it lives, a pipe that nobody reads is an error (EPIPE), not the end of the process.
class BrokenPipesAreErrors {
 public:
  BrokenPipesAreErrors() : before_(std::signal(SIGPIPE, SIG_IGN)) {}
  ~BrokenPipesAreErrors() { static_cast<void>(std::signal(SIGPIPE, before_)); }
  BrokenPipesAreErrors(const BrokenPipesAreErrors&) = delete;
  BrokenPipesAreErrors& operator=(const BrokenPipesAreErrors&) = delete;
  BrokenPipesAreErrors(BrokenPipesAreErrors&&) = delete;
  BrokenPipesAreErrors& operator=(BrokenPipesAreErrors&&) = delete;

 private:
  void (*before_)(int);
};

/// Opens a stream; a named pipe when somebody reads it.
Descriptor OpenStream(const OutputTarget& target) {
  while (true) {
    Descriptor stream(Open(target.name, O_WRONLY | O_NONBLOCK | (S_ISREG(target.type) ? O_TRUNC : 0)));
    if (stream.IsOpen()) return stream;
    if (errno != ENXIO || !S_ISFIFO(target.type)) RefuseToWrite(target.name, errno);
    WaitForAMoment();
  }
}

/// Writes to a file that the process has open, from where it stands.
void WriteToOpenFile(int descriptor, const std::string& bytes) {
  const std::string alias = fmt::format("/proc/self/fd/{}", descriptor);
  const Descriptor readable(Open(alias, O_RDONLY));
  const bool appends = (fcntl(descriptor, F_GETFL) & O_APPEND) != 0;
  const off_t position = lseek(descriptor, 0, appends ? SEEK_END : SEEK_CUR);
  if (!readable.IsOpen() || position < 0) throw std::system_error(errno, std::generic_category());
  WriteToDisk(descriptor, bytes, static_cast<std::size_t>(position), readable.Number());
}

void WriteStream(const OutputTarget& target, const std::string& bytes) {
  const BrokenPipesAreErrors scope;
  const bool is_own = target.own_descriptor >= 0;
  const Descriptor opened = is_own ? Descriptor() : OpenStream(target);
  const int descriptor = is_own ? target.own_descriptor : opened.Number();
  try {
    if (S_ISREG(target.type)) {
      WriteToOpenFile(descriptor, bytes);
    } else {
      WriteAll(descriptor, bytes);
    }
  } catch (const std::system_error& error) {
    RefuseToWrite(target.name, error.code().value());
  }
}

}  // namespace

// --- One file

StagedFile::StagedFile(OutputTarget target) : target_(std::move(target)) {
  try {
    MakeBeside();
  } catch (const std::system_error& error) {
    RefuseToWrite(target_.name, error.code().value());
  }
}

void StagedFile::MakeBeside() {
  constexpr mode_t kPermissions = 0777;
  const std::string folder = FolderOf(target_.path);
  RemoveLeftovers(folder);
  UnfinishedFile unfinished = MakeUnfinished(folder, target_.Exists() ? target_.mode & kPermissions : DEFFILEMODE);
  path_ = std::move(unfinished.path);
  file_ = std::move(unfinished.file);
}

StagedFile::StagedFile(StagedFile&& other) noexcept
    : target_(std::move(other.target_)),
      path_(std::exchange(other.path_, {})),
      file_(std::move(other.file_)),
      old_(std::move(other.old_)),
      size_(other.size_),
      place_(other.place_) {}

StagedFile::~StagedFile() {
  if (!path_.empty()) unlink(path_.c_str());
}

void StagedFile::WriteAt(std::string_view bytes, std::size_t position) {
  try {
    if (lseek(file_.Number(), static_cast<off_t>(position), SEEK_SET) < 0) RefuseToWrite(target_.name, errno);
    WriteToDisk(file_.Number(), bytes, position, file_.Number());
    size_ = std::max(size_, position + bytes.size());
  } catch (const std::system_error& error) {
    if (error.code().value() == EIO) RefuseAsNotWhole(target_.name);
    RefuseToWrite(target_.name, error.code().value());
  }
}

void StagedFile::Finish() const {
  struct stat status {};
  if (fstat(file_.Number(), &status) != 0) RefuseToWrite(target_.name, errno);
  if (static_cast<std::size_t>(status.st_size) != size_) RefuseAsNotWhole(target_.name);
  if (target_.Exists()) BecomeLikeTarget(status);
}

void StagedFile::BecomeLikeTarget(const struct stat& status) const {
  constexpr mode_t kPermissions = ACCESSPERMS;  // without what makes programs run as the owner or the group
  const bool is_others = status.st_uid != target_.owner || status.st_gid != target_.group;
  const bool is_given_away = is_others && fchown(file_.Number(), target_.owner, target_.group) == 0;
  // Most users may not give files away, and some file systems know no owners: it is theirs then.
  const mode_t mode = is_others && !is_given_away ? target_.mode & kPermissions : target_.mode;
  const bool has_mode = !is_others && (status.st_mode & ALLPERMS) == mode;
  if (!has_mode && fchmod(file_.Number(), mode) != 0) RefuseToWrite(target_.name, errno);
}

void StagedFile::TakePlace() {
  struct stat status {};
  if (lstat(target_.path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) RefuseToWrite(target_.name, EEXIST);
  old_ = Locked(target_.path);
  int code = Exchange(path_, target_.path);
  place_ = Place::kExchanged;
  if (code == ENOENT) {
    code = RenameToNew(path_, target_.path);
    place_ = Place::kNew;
  }
  if (IsUnknown(code)) {
    code = std::rename(path_.c_str(), target_.path.c_str()) == 0 ? 0 : errno;
    place_ = Place::kReplaced;
  }
  if (code != 0) {
    place_ = Place::kBeside;
    RefuseToWrite(target_.name, code);
  }
  if (place_ != Place::kExchanged) path_.clear();
}

bool StagedFile::Undo() noexcept {
  switch (std::exchange(place_, Place::kBeside)) {
    case Place::kBeside:
      return true;
    case Place::kExchanged:
      return Exchange(path_, target_.path) == 0;
    case Place::kNew:
      return unlink(target_.path.c_str()) == 0;
    case Place::kReplaced:
      break;
  }
  return false;
}

// --- All of them

namespace {

/// A file's bytes as its name promises them.
std::string AsNamed(const std::string& name, std::string bytes) {
  return name.ends_with(".gz") ? Gzipped(bytes) : std::move(bytes);
}

/// All files take their places, or none does, as far as that is possible.
void TakePlaces(std::vector<StagedFile>& files) {
  for (auto file = files.begin(); file != files.end(); ++file) {
    try {
      file->TakePlace();
    } catch (const std::runtime_error& error) {
      std::string remains;
      for (auto done = files.begin(); done != file; ++done) {
        if (!done->Undo()) remains += (remains.empty() ? "" : ", ") + done->Target().name;
      }
      throw std::runtime_error(error.what() + (remains.empty() ? "" : "; already replaced: " + remains));
    }
  }
}

}  // namespace

void RequireNew(const std::vector<std::string>& names, const std::string& otherwise) {
  const std::string reason = ": is there already; " + otherwise;
  for (const std::string& name : names) {
    if (std::filesystem::exists(std::filesystem::symlink_status(name))) throw std::runtime_error(name + reason);
  }
}

StagedFiles::StagedFiles(const std::vector<std::string>& names) {
  std::vector<OutputTarget> targets;
  for (const std::string& name : names) {
    if (!name.empty()) targets.push_back(FindTarget(name));
  }
  RefuseToWriteTwice(targets);
  for (OutputTarget& target : targets) outputs_.push_back({std::move(target), {}});
}

StagedFiles::~StagedFiles() {
  outputs_.clear();  // and what is unfinished in the folders
  // Those that have a file in them stay: the system removes empty folders only.
  for (auto folder = folders_.rbegin(); folder != folders_.rend(); ++folder) rmdir(folder->c_str());
}

void StagedFiles::RefuseToReplace(const InputFile& input) const {
  for (const Output& output : outputs_) {
    if (S_ISCHR(output.target.type) || output.target.id != input.Id()) continue;
    throw std::runtime_error("cannot write " + output.target.name + ": it is the same file as " + input.Name() +
                             ", which is read; give the output another name");
  }
}

void StagedFiles::RefuseToReplace(std::span<const InputFile> inputs) const {
  for (const InputFile& input : inputs) RefuseToReplace(input);
}

StagedFiles::Output& StagedFiles::Named(const std::string& name) {
  return *std::ranges::find(outputs_, name, [](const Output& output) { return output.target.name; });
}

void StagedFiles::Give(const std::string& name, std::string bytes) {
  Named(name).bytes = AsNamed(name, std::move(bytes));
}

void StagedFiles::GiveAt(const std::string& name, std::string_view bytes, std::size_t position) {
  Output& output = Named(name);
  if (!output.target.is_stream) return Begun(output).WriteAt(bytes, position);
  output.bytes.resize(std::max(output.bytes.size(), position + bytes.size()));
  output.bytes.replace(position, bytes.size(), bytes);
}

void StagedFiles::GiveUp(const std::string& name) {
  std::erase_if(outputs_, [&](const Output& output) { return output.target.name == name; });
}

void StagedFiles::GiveAll(std::vector<std::string> contents) {
  for (std::size_t k = 0; k < contents.size(); ++k) {
    outputs_[k].bytes = AsNamed(outputs_[k].target.name, std::move(contents[k]));
  }
}

void StagedFiles::Commit() {
  std::vector<StagedFile> files;
  for (Output& output : outputs_) {
    if (output.target.is_stream) continue;
    Begun(output).WriteAt(output.bytes, 0);
    output.file->Finish();
    files.push_back(std::move(*output.file));
  }
  for (const Output& output : outputs_) {
    if (output.target.is_stream) WriteStream(output.target, output.bytes);
  }
  ThrowIfInterrupted();
  TakePlaces(files);
}

StagedFile& StagedFiles::Begun(Output& output) {
  if (!output.file) {
    MakeFolders(output.target);
    output.file = std::make_unique<StagedFile>(output.target);
  }
  return *output.file;
}

void StagedFiles::MakeFolders(const OutputTarget& target) {
  std::vector<std::string> missing;
  for (std::filesystem::path folder = FolderOf(target.path); !std::filesystem::exists(folder);
       folder = folder.parent_path()) {
    missing.push_back(folder.string());
  }
  for (auto folder = missing.rbegin(); folder != missing.rend(); ++folder) {
    std::filesystem::create_directory(*folder);
    folders_.push_back(*folder);
  }
}

std::vector<std::string> StagedFiles::Names() const {
  std::vector<std::string> names;
  for (const Output& output : outputs_) names.push_back(output.target.name);
  return names;
}

bool StagedFiles::TakeStandardOutput() const {
  return std::ranges::any_of(outputs_, [](const Output& o) { return o.target.own_descriptor == STDOUT_FILENO; });
}

}  // namespace quen::workbench
