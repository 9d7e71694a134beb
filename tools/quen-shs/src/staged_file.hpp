#pragma once

#include <string>

namespace quen_shs {

/// A file that comes to be under a temporary name beside its target, and takes the target's place when it is whole.
/// Without Commit() nothing of it stays.
class StagedFile {
 public:
  explicit StagedFile(std::string target);
  ~StagedFile();
  StagedFile(StagedFile&& other) noexcept;
  StagedFile(const StagedFile&) = delete;
  StagedFile& operator=(const StagedFile&) = delete;
  StagedFile& operator=(StagedFile&&) = delete;

  /// Where to write.
  [[nodiscard]] const std::string& Path() const { return path_; }
  [[nodiscard]] const std::string& Target() const { return target_; }

  /// Renames the file to its target, replacing what is there.
  /// @throws std::filesystem::filesystem_error  the file cannot be renamed
  void Commit();

 private:
  std::string target_;
  std::string path_;
};

}  // namespace quen_shs
