#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/fits/fits.hpp"

namespace quen::workbench {

/// A FITS file that comes to be in memory, laid out as the library's own: an empty primary image until another is
/// written to it, then tables, all with checksums. No file, and so no name and no disk, has a part in it. Every
/// function throws std::runtime_error where CFITSIO fails, for want of memory.
class MemoryFits {
 public:
  MemoryFits();

  /// The primary image, to be written with the library's functions. To be asked for before the first table.
  [[nodiscard]] const quen::common::Fits::Handle& Image() const { return handle_; }

  /// Appends an empty table, to be written with the library's functions until the next one is appended.
  /// @param columns  name and TFORMn format of each column
  const quen::common::Fits::Handle& AddTable(const std::string& name,
                                             const std::vector<std::pair<std::string, std::string>>& columns);

  /// All of the file.
  [[nodiscard]] std::string Bytes();

 private:
  struct Memory;

  std::unique_ptr<Memory, void (*)(Memory*)> memory_;  // outlives the file that CFITSIO keeps there
  quen::common::Fits::Handle handle_;
};

}  // namespace quen::workbench
