#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "common/fits/fits.hpp"
#include "workbench/fits/content.hpp"
#include "workbench/fits/header.hpp"
#include "workbench/fits/input_file.hpp"
#include "workbench/fits/memory_fits.hpp"

/// @file
/// Binary tables as rows of a plain record. The columns of a record are listed once, for its writer and its reader:
///
///     struct Row { double gain = 0.0; std::string engine; };
///     const std::vector<Column<Row>> kColumns = {{"gain", "rad", "of the integrator", &Row::gain},
///                                                {"engine", "", "", &Row::engine}};

namespace quen::workbench {

/// A column: its name, its unit (none if empty), a comment on the unit, and where its value is in a row: a member, or
/// what a function refers to. A span makes a column of vectors, in all rows as long as in a default-constructed one.
template <typename Row>
struct Column {
  const char* name;
  const char* unit;
  const char* comment;
  std::variant<double Row::*, std::uint8_t Row::*, std::uint16_t Row::*, std::int32_t Row::*, std::string Row::*,
               double& (*)(Row&), std::span<double> (*)(Row&)>
      value;
};

namespace detail {

template <typename Row, typename T>
std::span<T> ValuesAt(Row& row, T Row::*member) {
  return {&(row.*member), 1};
}
template <typename Row>
std::span<double> ValuesAt(Row& row, double& (*value)(Row&)) {
  return {&value(row), 1};
}
template <typename Row>
std::span<double> ValuesAt(Row& row, std::span<double> (*values)(Row&)) {
  return values(row);
}

/// TFORMn of a column with so many values in a row.
template <typename T>
std::string Format(std::size_t width);

/// All values of a column, one after the other.
/// @throws std::runtime_error  they cannot be written, or read: no such column of that type and width
template <typename T>
void WriteValues(const quen::common::Fits::Handle& table, int column, const std::vector<T>& values);
template <typename T>
std::vector<T> ReadValues(const InputFile& file, const quen::common::Fits::Handle& table, const char* column,
                          std::size_t width);

}  // namespace detail

/// Appends a table of rows, with the units of its columns. The caller may then write further keywords into its header.
/// @throws std::runtime_error  CFITSIO fails, which it does when memory runs out
template <typename Row>
const quen::common::Fits::Handle& AppendRows(MemoryFits& fits, const std::string& name,
                                             std::span<const Column<Row>> columns, std::vector<Row> rows) {
  std::vector<std::pair<std::string, std::string>> formats;
  for (const Column<Row>& column : columns) {
    std::visit(
        [&](const auto& place) {
          Row row{};
          const auto values = detail::ValuesAt(row, place);
          using T = typename decltype(values)::element_type;
          formats.emplace_back(column.name, detail::Format<T>(values.size()));
        },
        column.value);
  }
  const quen::common::Fits::Handle& table = fits.AddTable(name, formats);
  int number = 0;
  for (const Column<Row>& column : columns) {
    ++number;
    std::visit(
        [&](const auto& place) {
          using T = typename decltype(detail::ValuesAt(std::declval<Row&>(), place))::element_type;
          std::vector<T> all;
          for (Row& row : rows) {
            const auto values = detail::ValuesAt(row, place);
            all.insert(all.end(), values.begin(), values.end());
          }
          detail::WriteValues(table, number, all);
        },
        column.value);
  }
  number = 0;
  for (const Column<Row>& column : columns) {
    ++number;
    if (*column.unit != '\0') WriteKey(table, "TUNIT" + std::to_string(number), column.unit, column.comment);
  }
  return table;
}

/// Reads these columns of a table.
/// @throws std::runtime_error  no such table, a column is missing or of another type, or it cannot be read
template <typename Row>
std::vector<Row> ReadRows(const InputFile& file, const char* name, std::span<const Column<Row>> columns) {
  const quen::common::Fits::Handle table = OpenFits(file, name);
  std::vector<Row> rows;
  for (const Column<Row>& column : columns) {
    std::visit(
        [&](const auto& place) {
          Row empty{};
          const auto example = detail::ValuesAt(empty, place);
          using T = typename decltype(example)::element_type;
          const std::vector<T> all = detail::ReadValues<T>(file, table, column.name, example.size());
          rows.resize(all.size() / example.size());
          auto next = all.begin();
          for (Row& row : rows) {
            for (T& value : detail::ValuesAt(row, place)) value = *next++;
          }
        },
        column.value);
  }
  return rows;
}

}  // namespace quen::workbench
