#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "workbench/fits/descriptor.hpp"

namespace quen::workbench {

/// Bytes that wait on the disk until a file is made of them, any number of them in little memory. They lie in a file
/// without a name, which is gone with the process, whatever becomes of it.
class Spool {
 public:
  /// @param output  the file that is to be made: the bytes wait on its disk where that can be done, else in /var/tmp or
  ///                in the folder for temporary files
  /// @throws std::runtime_error  no such file can be made
  /// @throws Interrupted         a signal has come
  explicit Spool(std::string output);

  /// @throws std::runtime_error  the disk takes no more
  void Add(std::string_view bytes);

  [[nodiscard]] std::uint64_t Size() const { return size_; }

  /// `count` bytes from a position on, fewer only at the end.
  /// @throws std::runtime_error  they cannot be read
  [[nodiscard]] std::string Piece(std::uint64_t position, std::size_t count) const;

 private:
  std::string output_;  ///< for messages
  Descriptor file_;
  std::uint64_t size_ = 0;
};

}  // namespace quen::workbench
