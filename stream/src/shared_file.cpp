#include "stream/src/shared_file.hpp"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "stream/src/refusal.hpp"

namespace quen::stream {

Descriptor::~Descriptor() {
  if (IsOpen()) close(number_);
}

Descriptor::Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  std::swap(number_, other.number_);
  return *this;
}

Identity IdentityOf(const std::string& path) {
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0) return {};
  return {status.st_dev, status.st_ino};
}

Identity IdentityOf(const Descriptor& file) {
  struct stat status = {};
  if (fstat(file.Number(), &status) != 0) return {};
  return {status.st_dev, status.st_ino};
}

SharedFile::SharedFile(const Descriptor& file, std::size_t bytes, const std::string& path) : bytes_(bytes) {
  void* const memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file.Number(), 0);
  if (memory == MAP_FAILED) throw RefusalOfSystem("cannot map " + path);
  memory_ = static_cast<std::byte*>(memory);
}

SharedFile::~SharedFile() { munmap(memory_, bytes_); }

}  // namespace quen::stream
