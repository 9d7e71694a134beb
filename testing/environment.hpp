#pragma once

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>

/// @file
/// What a test may change around itself, put back when the scope ends.

namespace quen::testing {

/// A folder of one test's own, removed with all it holds.
class TempDir {
 public:
  explicit TempDir(const std::filesystem::path& parent = std::filesystem::temp_directory_path()) {
    std::string name = (parent / "quen_test_XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make a temporary folder");
    path_ = name;
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  TempDir(TempDir&&) = delete;
  TempDir& operator=(TempDir&&) = delete;

  [[nodiscard]] std::string Path() const { return path_.string(); }
  [[nodiscard]] std::string operator/(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

/// Sets an environment variable, or unsets it with std::nullopt.
class ScopedVariable {
 public:
  ScopedVariable(std::string name, const std::optional<std::string>& value) : name_(std::move(name)) {
    if (const char* const old = std::getenv(name_.c_str()); old != nullptr) old_ = old;
    Set(value);
  }
  ~ScopedVariable() { Set(old_); }
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;
  ScopedVariable(ScopedVariable&&) = delete;
  ScopedVariable& operator=(ScopedVariable&&) = delete;

 private:
  void Set(const std::optional<std::string>& value) const {
    if (value) {
      setenv(name_.c_str(), value->c_str(), 1);
    } else {
      unsetenv(name_.c_str());
    }
  }

  std::string name_;
  std::optional<std::string> old_;
};

class ScopedCurrentDirectory {
 public:
  explicit ScopedCurrentDirectory(const std::string& path) : old_(std::filesystem::current_path()) {
    std::filesystem::current_path(path);
  }
  ~ScopedCurrentDirectory() {
    std::error_code ignored;
    std::filesystem::current_path(old_, ignored);
  }
  ScopedCurrentDirectory(const ScopedCurrentDirectory&) = delete;
  ScopedCurrentDirectory& operator=(const ScopedCurrentDirectory&) = delete;
  ScopedCurrentDirectory(ScopedCurrentDirectory&&) = delete;
  ScopedCurrentDirectory& operator=(ScopedCurrentDirectory&&) = delete;

 private:
  std::filesystem::path old_;
};

/// Number of files and folders below a folder.
inline std::size_t EntriesBelow(const std::string& folder) {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::recursive_directory_iterator(folder)) ++count;
  return count;
}

/// Number of descriptors that this process holds open.
inline std::size_t OpenDescriptors() {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
  return count;
}

}  // namespace quen::testing
