#pragma once

#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "workbench/fits/memory_fits.hpp"

/// @file
/// The tables of an Adaptive Optics Telemetry file, listed once for its writer and its reader.

namespace quen::workbench::aot {

inline constexpr const char* kVersionKey = "AOT-VERS";
inline constexpr const char* kVersion = "2.0.0";
inline constexpr std::string_view kRowReference = "ROWREF<";
inline constexpr std::string_view kImageReference = "INTREF<";

/// What the values of a column are.
enum class Kind {
  kText,    ///< empty: none
  kRow,     ///< text that refers to a row of another table by its UID
  kImage,   ///< text that refers to an image of the file by its name
  kWhole,   ///< 16 bits; -32768: none
  kNumber,  ///< double; NaN: none
  kList,    ///< doubles, as many as there are
};

struct Column {
  const char* name = "";
  Kind kind = Kind::kText;
  const char* unit = "";   ///< of a number or a list; empty if it has none
  const char* table = "";  ///< a row of which is referred to
  const char* axes = "";   ///< of an image, the slowest first, a letter each: equal letters, equal lengths; empty: any
};

/// Its first column is the UID.
struct Table {
  const char* name = "";
  std::vector<Column> columns;
  const char* main = "";  ///< the table whose rows it says more of, by the same UID; empty of a main table
  bool is_optional = false;
};

/// All that are known, the main ones first.
const std::vector<Table>& Tables();

/// A row by the names of its columns; what is left out has no value.
using Value = std::variant<std::string, int, double, std::vector<double>>;
using Row = std::map<std::string, Value>;

std::string ReferenceToRow(const std::string& uid);
std::string ReferenceToImage(const std::string& extension);

/// Appends a table.
/// @throws std::runtime_error  CFITSIO fails
const quen::common::Fits::Handle& Append(MemoryFits& fits, const Table& table, const std::vector<Row>& rows);

}  // namespace quen::workbench::aot
