#pragma once

#include <cstddef>
#include <string>

#include "stream/src/shared_file.hpp"

/// @file
/// A writer's right to a name. Internal to the library.

namespace quen::stream {

/// An empty file that is locked as long as the claim is held: no other claim has it. Whoever dies loses the lock.
class Claim {
 public:
  /// Unlinks a file that nobody has locked, and makes a new one: it may be mapped by others, who must not find it
  /// resized.
  /// @throws std::runtime_error  a living writer has it; what is there is no file; the system refuses
  explicit Claim(std::string path);
  /// Unlinks the file, if it is still the one of this name.
  ~Claim();
  Claim(const Claim&) = delete;
  Claim& operator=(const Claim&) = delete;
  Claim(Claim&&) = delete;
  Claim& operator=(Claim&&) = delete;

  /// Gives the file its size, with all its room reserved: a sparse file on a full file system would end the process at
  /// the first frame. All of it is zero.
  /// @throws std::runtime_error  the system refuses
  void Reserve(std::size_t bytes) const;

  [[nodiscard]] const Descriptor& File() const { return file_; }
  [[nodiscard]] const std::string& Path() const { return path_; }

 private:
  std::string path_;
  Descriptor file_;
};

}  // namespace quen::stream
