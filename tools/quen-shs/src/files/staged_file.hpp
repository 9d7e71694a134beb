#pragma once

#include <string>
#include <vector>

namespace quen_shs {

/// A file that comes to be under a temporary name beside its target, and takes the target's place when it is whole.
/// Without Commit() nothing of it stays.
class StagedFile {
 public:
  /// Makes the folder if it is missing.
  /// @throws std::filesystem::filesystem_error  it cannot be made
  /// @throws std::runtime_error                 no file can be made there
  explicit StagedFile(std::string target);
  ~StagedFile();
  StagedFile(StagedFile&& other) noexcept;
  StagedFile(const StagedFile&) = delete;
  StagedFile& operator=(const StagedFile&) = delete;
  StagedFile& operator=(StagedFile&&) = delete;

  /// Where to write.
  [[nodiscard]] const std::string& Path() const { return path_; }
  [[nodiscard]] const std::string& Target() const { return target_; }

  /// Reads a FITS file back: every HDU's checksums must be there and right. A full disk may show at the last moment, when
  /// a file is closed, where the library reports nothing. Other files are taken as they are.
  /// @throws std::runtime_error  the file is not whole
  void Check() const;

  /// Renames the file to its target, replacing what is there.
  /// @throws std::filesystem::filesystem_error  the file cannot be renamed
  void Commit();

 private:
  std::string target_;
  std::string path_;
};

/// Commits all files, if all are whole.
void CheckAndCommit(std::vector<StagedFile>& files);

}  // namespace quen_shs
