#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "workbench/fits/descriptor.hpp"

/// @file
/// A file to be read, opened once, under exactly the name that the user wrote: no character in it has a special
/// meaning.

namespace quen::workbench {

/// A file that is not to be read by this user, at any moment: a folder, one that others closed, one that is too long.
class Unreadable : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What becomes of a file that is compressed by gzip, whatever its name is.
enum class Packed {
  kUnpacked,  ///< it is read as what it unpacks to, which is kept in memory
  kAsItIs,    ///< for what the library reads, which need not unpack it
};

/// An open file. A pipe, a terminal or a device is read to its end into memory, and is then like any other file.
class InputFile {
 public:
  /// @throws Unreadable          no such file, a folder, not readable, more than 4 GiB, a pipe with more than 256 MiB
  /// @throws std::runtime_error  a packed file that is damaged or unpacks to more than 1 GiB; the system fails, which
  ///                             says nothing of the file
  /// @throws Interrupted         a signal has come while a pipe was waited for, or a file unpacked
  explicit InputFile(const std::string& name, Packed packed = Packed::kUnpacked);

  /// A file that is only in memory.
  /// @param name  in messages
  /// @throws std::runtime_error  there is no memory for it
  static InputFile InMemory(const std::string& name, std::string_view bytes);

  /// Reads the whole of a file on a disk into memory, if there is room: then it stays as it is now, and reading it
  /// again cannot fail.
  /// @throws std::runtime_error  it cannot be read
  void TakeIntoMemory();

  /// What the user wrote.
  [[nodiscard]] const std::string& Name() const { return name_; }

  /// The name under which the library opens this very file, as long as the object lives, whatever happens to its name.
  /// @throws std::runtime_error  /proc is not mounted, and the file's own name would mean something else to CFITSIO
  [[nodiscard]] std::string Path() const;

  [[nodiscard]] std::uint64_t Size() const { return size_; }

  /// Of the file that was opened.
  [[nodiscard]] FileId Id() const { return id_; }

  /// Whether it is a file on a disk, not a pipe, a terminal or a device.
  [[nodiscard]] bool IsRegular() const { return is_regular_; }

  /// The first bytes, up to `count`.
  /// @throws std::runtime_error  it cannot be read
  [[nodiscard]] std::string Beginning(std::size_t count) const;

  /// `count` bytes from a position on, fewer only at the end.
  /// @throws std::runtime_error  they cannot be read, or the file has become shorter
  [[nodiscard]] std::string Piece(std::uint64_t position, std::size_t count) const;

  /// The whole of a text.
  /// @throws std::runtime_error  it cannot be read, or is longer than 16 MiB
  [[nodiscard]] std::string Text() const;

  /// A message of the library with the user's name in it in place of Path().
  [[nodiscard]] std::string WithName(std::string message) const;

 private:
  InputFile() = default;
  void KeepInMemory(std::string_view bytes);
  void TakeStream();
  void Unpack();

  std::string name_;
  Descriptor descriptor_;
  std::uint64_t size_ = 0;
  FileId id_ = {};
  bool is_regular_ = false;
  bool is_unpacked_ = false;
};

/// Returns what `read` returns.
/// @throws std::runtime_error  `read` threw: its message, with the name that the user wrote
template <typename Read>
auto Reading(const InputFile& file, const Read& read) {
  try {
    return read();
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(file.WithName(error.what()));
  } catch (const std::logic_error& error) {
    throw std::runtime_error(file.WithName(error.what()));
  }
}

}  // namespace quen::workbench
