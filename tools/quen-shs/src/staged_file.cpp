#include "tools/quen-shs/src/staged_file.hpp"

#include <unistd.h>

#include <filesystem>
#include <system_error>
#include <utility>

namespace quen_shs {

StagedFile::StagedFile(std::string target)
    : target_(std::move(target)), path_(target_ + "." + std::to_string(getpid()) + ".part") {}

StagedFile::StagedFile(StagedFile&& other) noexcept
    : target_(std::move(other.target_)), path_(std::exchange(other.path_, {})) {}

StagedFile::~StagedFile() {
  if (path_.empty()) return;
  std::error_code ignored;
  std::filesystem::remove(path_, ignored);
}

void StagedFile::Commit() {
  std::filesystem::rename(path_, target_);
  path_.clear();
}

}  // namespace quen_shs
