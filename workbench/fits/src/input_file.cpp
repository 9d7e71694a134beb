#include "workbench/fits/input_file.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "workbench/fits/src/gzip.hpp"
#include "workbench/fits/transfer.hpp"

namespace quen::workbench {
namespace {

constexpr std::size_t kMostOfAPipe = 256U << 20U;
constexpr std::uint64_t kMostOfAFile = std::uint64_t{4} << 30U;
constexpr std::uint64_t kMostUnpacked = std::uint64_t{1} << 30U;
constexpr std::size_t kMostOfAText = 16U << 20U;

[[noreturn]] void RefuseToRead(const std::string& name, const std::string& reason) {
  throw std::runtime_error(name + ": cannot be read: " + reason);
}

/// Says why a file could not be opened.
[[noreturn]] void RefuseToOpen(const std::string& name, int error) {
  constexpr std::array kOfTheFile = {ENOENT, ENOTDIR, EACCES, EPERM, ELOOP, ENAMETOOLONG, ENXIO, ENODEV};
  const std::string reason = name + ": cannot be read: " + std::strerror(error);
  if (std::ranges::count(kOfTheFile, error) > 0) throw Unreadable(reason);
  throw std::runtime_error(reason);
}

/// Whether CFITSIO takes a name for nothing but a name.
bool IsHarmless(const std::string& path) {
  return std::ranges::all_of(path, [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '_' ||
           c == '-' || c == '/';
  });
}

/// A file that has no name.
Descriptor FileInMemory() {
  Descriptor memory(memfd_create("quen-shs", MFD_CLOEXEC));
  if (!memory.IsOpen()) throw std::system_error(errno, std::generic_category());
  return memory;
}

}  // namespace

// A pipe without a writer is waited for when it is read, which a signal can end at any moment.
InputFile::InputFile(const std::string& name, Packed packed)
    : name_(name), descriptor_(Open(name, O_RDONLY | O_NONBLOCK)) {
  struct stat status {};
  if (!descriptor_.IsOpen() || fstat(descriptor_.Number(), &status) != 0) RefuseToOpen(name, errno);
  if (S_ISDIR(status.st_mode)) throw Unreadable(name + ": expected a file, found a folder");
  id_ = IdOf(status);
  is_regular_ = S_ISREG(status.st_mode);
  size_ = static_cast<std::uint64_t>(status.st_size);
  if (is_regular_ && size_ > kMostOfAFile) throw Unreadable(name + ": expected a file of 4 GiB at most, found more");
  if (!is_regular_) TakeStream();
  if (packed == Packed::kUnpacked && IsGzip(Beginning(2))) Unpack();
}

void InputFile::TakeStream() {
  try {
    const std::string bytes = ReadToEnd(descriptor_.Number(), kMostOfAPipe);
    if (bytes.size() > kMostOfAPipe) {
      throw Unreadable(name_ + ": expected 256 MiB at most from what is no file on a disk, found more");
    }
    KeepInMemory(bytes);
  } catch (const std::system_error& error) {
    RefuseToRead(name_, error.code().message());
  }
}

void InputFile::Unpack() {
  constexpr std::size_t kPiece = 1U << 18U;
  std::uint64_t size = 0;
  try {
    Descriptor memory = FileInMemory();
    const auto keep = [&](std::string_view piece) {
      WriteToDisk(memory.Number(), piece, size, memory.Number());
      size += piece.size();
      if (size <= kMostUnpacked) return;
      throw std::runtime_error(name_ + ": expected 1 GiB at most to be unpacked, found more; unpack it with gunzip");
    };
    Gunzip(
        name_, [&](std::uint64_t position) { return Piece(position, kPiece); }, keep);
    descriptor_ = std::move(memory);
  } catch (const std::system_error& error) {
    RefuseToRead(name_, error.code().message());
  }
  size_ = size;
  is_unpacked_ = true;
}

InputFile InputFile::InMemory(const std::string& name, std::string_view bytes) {
  InputFile file;
  file.name_ = name;
  try {
    file.KeepInMemory(bytes);
  } catch (const std::system_error& error) {
    RefuseToRead(name, error.code().message());
  }
  return file;
}

void InputFile::TakeIntoMemory() {
  const std::string bytes = Piece(0, size_);
  try {
    KeepInMemory(bytes);
  } catch (const std::system_error&) {  // a limit on the sizes of files is one on these, too: it stays on the disk
  }
}

void InputFile::KeepInMemory(std::string_view bytes) {
  Descriptor memory = FileInMemory();
  WriteToDisk(memory.Number(), bytes, 0, memory.Number());
  descriptor_ = std::move(memory);
  size_ = bytes.size();
}

std::string InputFile::Path() const {
  std::string alias = fmt::format("/proc/self/fd/{}", descriptor_.Number());
  if (access(alias.c_str(), F_OK) == 0) return alias;
  std::string path = std::filesystem::absolute(name_).string();
  if (is_regular_ && !is_unpacked_ && IsHarmless(path)) return path;
  throw std::runtime_error(name_ +
                           ": cannot be opened safely: mount /proc, or give an unpacked file on a disk whose path has "
                           "letters, digits and . _ - / only");
}

std::string InputFile::Beginning(std::size_t count) const {
  try {
    return ReadAt(descriptor_.Number(), 0, count);
  } catch (const std::system_error& error) {
    RefuseToRead(name_, error.code().message());
  }
}

std::string InputFile::Piece(std::uint64_t position, std::size_t count) const {
  try {
    std::string bytes = ReadAt(descriptor_.Number(), position, count);
    if (bytes.size() == std::min<std::uint64_t>(count, size_ - position)) return bytes;
  } catch (const std::system_error& error) {
    RefuseToRead(name_, error.code().message());
  }
  RefuseToRead(name_, "it has changed meanwhile");
}

std::string InputFile::Text() const {
  std::string text = Beginning(kMostOfAText + 1);
  if (text.size() > kMostOfAText) throw std::runtime_error(name_ + ": expected a text of 16 MiB at most, found more");
  return text;
}

std::string InputFile::WithName(std::string message) const {
  const std::string alias = Path();
  for (std::size_t at = 0; (at = message.find(alias, at)) != std::string::npos; at += name_.size()) {
    const std::size_t end = at + alias.size();
    const bool is_longer = end < message.size() && message[end] >= '0' && message[end] <= '9';  // another's
    if (!is_longer) message.replace(at, alias.size(), name_);
  }
  return message;
}

}  // namespace quen::workbench
