#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "workbench/fits/descriptor.hpp"
#include "workbench/fits/input_file.hpp"
#include "workbench/fits/output_target.hpp"

/// @file
/// The files that a command writes. They are claimed before any work, given their content, and committed together:
///
/// - A name leads to the file of that name, after symbolic links, which stay. What is there is replaced by a
///   rename when the new file is whole, and keeps its mode, and its owner where the user may give files away. Pipes,
///   devices and what the process has open already, its standard output above all, are written to.
/// - A file whose name ends in ".gz" is compressed by gzip.
/// - A file is whole when it has been written, the disk has said so, and it has been read back.
/// - Of several files either all take their places or none does, as long as the file system can exchange two files;
///   where it cannot, the message says which files have changed.
/// - An unfinished file is called ".quen-shs-<digits>.part", beside its target, and is removed when the command fails.
///   If the process is killed it stays; the next command that writes into that folder removes it.

namespace quen::workbench {

/// A file that is to take the place of another, beside it.
class StagedFile {
 public:
  /// Makes the file beside its target.
  /// @throws std::runtime_error  it cannot be made
  explicit StagedFile(OutputTarget target);
  ~StagedFile();
  StagedFile(StagedFile&& other) noexcept;
  StagedFile(const StagedFile&) = delete;
  StagedFile& operator=(const StagedFile&) = delete;
  StagedFile& operator=(StagedFile&&) = delete;

  /// @throws std::runtime_error  the disk does not take them all, or gives others back
  void WriteAt(std::string_view bytes, std::size_t position);

  /// Once all is written.
  /// @throws std::runtime_error  it is not as long as what was written, or cannot become like its target
  void Finish() const;
  /// Both, for all of it.
  void Write(std::string_view bytes) {
    WriteAt(bytes, 0);
    Finish();
  }

  /// Puts the file into its target's place. What was there stays beside it, for Undo(), as long as the object lives.
  /// @throws std::runtime_error  it cannot be put there; the target is as before
  void TakePlace();

  /// Puts back what was there.
  /// @return  whether that was possible
  bool Undo() noexcept;

  [[nodiscard]] const OutputTarget& Target() const { return target_; }

 private:
  enum class Place { kBeside, kExchanged, kNew, kReplaced };

  void MakeBeside();
  void BecomeLikeTarget(const struct stat& status) const;

  OutputTarget target_;
  std::string path_;      ///< beside the target; empty if nothing is there
  Descriptor file_;       ///< locked, so that others see that somebody is at work
  Descriptor old_;        ///< what was there before, locked for the same reason
  std::size_t size_ = 0;  ///< of what was written
  Place place_ = Place::kBeside;
};

/// @param otherwise  what to do instead, "give --force to replace it" for instance
/// @throws std::runtime_error  one of these names is in use
void RequireNew(const std::vector<std::string>& names, const std::string& otherwise);

/// All outputs of a command.
class StagedFiles {
 public:
  /// Claims files. Empty names, of outputs that are not wanted, are left out.
  /// @throws std::runtime_error  a name cannot be written to, or two lead to the same file
  explicit StagedFiles(const std::vector<std::string>& names);
  ~StagedFiles();
  StagedFiles(const StagedFiles&) = delete;
  StagedFiles& operator=(const StagedFiles&) = delete;
  StagedFiles(StagedFiles&&) = delete;
  StagedFiles& operator=(StagedFiles&&) = delete;

  /// @throws std::runtime_error  one of them is among the files that the command reads
  void RefuseToReplace(const InputFile& input) const;
  void RefuseToReplace(std::span<const InputFile> inputs) const;

  /// Gives a file its content.
  /// @param name  one of those claimed
  void Give(const std::string& name, std::string bytes);
  /// Gives a file a part of its content, which goes to the disk at once: memory holds it only where the name is a
  /// pipe's or a device's. No name that ends in ".gz".
  /// @param name  one of those claimed
  /// @throws std::runtime_error  it cannot be written
  void GiveAt(const std::string& name, std::string_view bytes, std::size_t position);
  /// A file that is not written after all.
  /// @param name  one of those claimed
  void GiveUp(const std::string& name);
  /// Gives files their contents, in their order: all of them, or those that were claimed first.
  void GiveAll(std::vector<std::string> contents);

  /// Writes the files, first those that are written to in place.
  /// @throws std::runtime_error  one cannot be written: the message says which, and what has changed nevertheless
  /// @throws Interrupted         a signal has come; no file has changed
  void Commit();

  /// The names that were claimed, in their order.
  [[nodiscard]] std::vector<std::string> Names() const;

  /// Whether one of them is the standard output, which is then no place for anything else.
  [[nodiscard]] bool TakeStandardOutput() const;

 private:
  struct Output {
    OutputTarget target;
    std::string bytes;
    std::unique_ptr<StagedFile> file = nullptr;  ///< once it is begun
  };

  [[nodiscard]] Output& Named(const std::string& name);
  StagedFile& Begun(Output& output);
  void MakeFolders(const OutputTarget& target);

  std::vector<Output> outputs_;
  std::vector<std::string> folders_;  ///< made for the files, removed again if writing fails; outermost first
};

}  // namespace quen::workbench
