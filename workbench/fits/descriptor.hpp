#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <utility>

namespace quen::workbench {

/// Owner of an open descriptor, or of none.
class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}
  ~Descriptor() { Close(); }
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) {
      Close();
      number_ = std::exchange(other.number_, -1);
    }
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  [[nodiscard]] int Number() const { return number_; }
  [[nodiscard]] bool IsOpen() const { return number_ >= 0; }

 private:
  void Close() const {
    if (IsOpen()) close(number_);
  }

  int number_;
};

/// What tells a file from any other, whatever it is called.
struct FileId {
  dev_t device;
  ino_t inode;

  bool operator==(const FileId&) const = default;
};

inline FileId IdOf(const struct stat& status) { return {status.st_dev, status.st_ino}; }

}  // namespace quen::workbench
