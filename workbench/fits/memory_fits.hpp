#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/fits/fits.hpp"

namespace quen::workbench {

/// A FITS file that is made in memory, laid out as the library's own: a primary image, empty unless one is written,
/// then tables, all with checksums. It needs no name and no disk. Every function throws std::runtime_error where
/// CFITSIO fails, which it does when memory runs out.
class MemoryFits {
 public:
  /// Whether the comments of its checksums say when they were made. Without dates equal contents are equal bytes.
  enum class Dates { kToday, kNone };

  explicit MemoryFits(Dates dates = Dates::kToday);

  /// The primary image, to be written with the library's functions. Ask for it before the first table is appended.
  [[nodiscard]] const quen::common::Fits::Handle& Image() const { return handle_; }

  /// Appends an empty table, to be written with the library's functions until the next one is appended.
  /// @param columns  name and TFORMn format of each column
  const quen::common::Fits::Handle& AddTable(const std::string& name,
                                             const std::vector<std::pair<std::string, std::string>>& columns);

  /// The whole file.
  [[nodiscard]] std::string Bytes();

 private:
  struct Memory;

  void WriteCheckSums();

  Dates dates_;
  std::unique_ptr<Memory, void (*)(Memory*)> memory_;  // outlives the file that CFITSIO keeps there
  quen::common::Fits::Handle handle_;
};

}  // namespace quen::workbench
