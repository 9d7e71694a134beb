#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace quen::workbench {

/// Takes bytes of a file, and their place in it.
using ByteSink = std::function<void(std::string_view bytes, std::size_t position)>;

/// A FITS file with one table, of any length in a few megabytes of memory. Its rows are handed on while they come; the
/// header, which has their number and their checksums, is handed on last, and goes before them.
class LongTable {
 public:
  /// @param empty  the whole file while the table has no rows: MemoryFits::Bytes(), without dates
  LongTable(std::string empty, ByteSink sink);

  /// @param row  its bytes as FITS has them: big-endian numbers, texts as wide as their column
  void Add(std::string_view row);

  /// Hands on what is left.
  void End();

 private:
  void HandOn(std::size_t count);

  std::string header_;  ///< of the whole file
  ByteSink sink_;
  std::string waiting_;        ///< rows
  std::size_t handed_on_ = 0;  ///< bytes of rows
  std::uint64_t rows_ = 0;
  std::uint32_t sum_ = 0;  ///< of the bytes that have been handed on
};

}  // namespace quen::workbench
