#include "tools/quen-shs/src/files/staged_file.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "common/fits/fits.hpp"

namespace quen_shs {
namespace {

using quen::common::Fits::Handle;

/// Whether both checksums of the HDU that the file is positioned on are right.
bool IsSummedUp(const Handle& file) {
  constexpr int kRight = 1;
  int data = 0;
  int hdu = 0;
  int status = 0;
  fits_verify_chksum(file->file, &data, &hdu, &status);
  return status == 0 && data == kRight && hdu == kRight;
}

bool IsWhole(const std::string& path) {
  try {
    const Handle file = quen::common::Fits::FitsFile(path, std::nullopt);
    int status = 0;
    int hdus = 0;
    fits_get_num_hdus(file->file, &hdus, &status);
    for (int number = 1; status == 0 && number <= hdus; ++number) {
      fits_movabs_hdu(file->file, number, nullptr, &status);
      if (!IsSummedUp(file)) return false;
    }
    return status == 0;
  } catch (const std::runtime_error&) {
    return false;
  }
}

}  // namespace

StagedFile::StagedFile(std::string target)
    : target_(std::move(target)), path_(target_ + "." + std::to_string(getpid()) + ".part") {
  const std::filesystem::path folder = std::filesystem::path(target_).parent_path();
  if (!folder.empty()) std::filesystem::create_directories(folder);
  if (!std::ofstream(path_)) throw std::runtime_error("cannot write " + target_ + ": " + std::strerror(errno));
  std::filesystem::remove(path_);
}

StagedFile::StagedFile(StagedFile&& other) noexcept
    : target_(std::move(other.target_)), path_(std::exchange(other.path_, {})) {}

StagedFile::~StagedFile() {
  if (path_.empty()) return;
  std::error_code ignored;
  std::filesystem::remove(path_, ignored);
}

void StagedFile::Check() const {
  if (!target_.ends_with(".fits") || IsWhole(path_)) return;
  throw std::runtime_error("cannot write " + target_ +
                           ": read back, it is not whole; make room on the disk and run this again");
}

void StagedFile::Commit() {
  std::filesystem::rename(path_, target_);
  path_.clear();
}

void CheckAndCommit(std::vector<StagedFile>& files) {
  for (const StagedFile& file : files) file.Check();
  for (StagedFile& file : files) file.Commit();
}

}  // namespace quen_shs
