#include "workbench/fits/table.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string_view>

#include "workbench/fits/src/cfitsio_status.hpp"

namespace quen::workbench::detail {
namespace {

using quen::common::Fits::CppToFits;
using quen::common::Fits::Handle;
using quen::common::Fits::WriteColumnPriv;

constexpr std::size_t kLongestText = 300;  // bytes: an engine with all its options

/// As the library writes them: unsigned 16-bit numbers as signed ones.
template <typename T>
constexpr int kDatatype = 0;
template <>
constexpr int kDatatype<double> = TDOUBLE;
template <>
constexpr int kDatatype<std::uint8_t> = TBYTE;
template <>
constexpr int kDatatype<std::uint16_t> = TSHORT;
template <>
constexpr int kDatatype<std::int32_t> = TINT;

std::string CannotRead(const InputFile& file, const std::string& column) {
  return fmt::format("{}: its column \"{}\" cannot be read", file.Name(), column);
}

/// What the library reads of a column, without CFITSIO's words where it fails.
template <typename T>
std::vector<T> ReadByLibrary(const InputFile& file, const Handle& table, const char* column) {
  constexpr std::string_view kFailure = "Fits: Error reading column";
  return Reading(file, [&] {
    try {
      return quen::common::Fits::ReadColumnOrThrow<T>(table, column);
    } catch (const std::runtime_error& error) {
      if (!std::string_view(error.what()).starts_with(kFailure)) throw;
      fits_clear_errmsg();
      throw std::runtime_error(CannotRead(file, column) + "; the file may be damaged");
    }
  });
}

/// Where a column is, and how many values of it a row has.
struct Shape {
  int number = 0;
  std::size_t width = 0;
  std::size_t rows = 0;
};

/// @return  none if the table has no such column
Shape ShapeOf(const Handle& table, std::string column) {
  Shape shape;
  int status = 0;
  int type = 0;
  long width = 0;
  long rows = 0;
  fits_get_colnum(table->file, CASESEN, column.data(), &shape.number, &status);
  fits_get_coltype(table->file, shape.number, &type, &width, nullptr, &status);
  fits_get_num_rows(table->file, &rows, &status);
  if (status != 0) {
    fits_clear_errmsg();
    return {};
  }
  shape.width = static_cast<std::size_t>(width);
  shape.rows = static_cast<std::size_t>(rows);
  return shape;
}

/// What the library does not read: vectors, and whole numbers of 32 bits.
template <typename T>
std::vector<T> ReadOthers(const InputFile& file, const Handle& table, const char* column, std::size_t width) {
  const Shape shape = ShapeOf(table, column);
  if (shape.width != width) {
    throw std::runtime_error(fmt::format("{}: expected a column \"{}\" of {} values in its table \"{}\", found none",
                                         file.Name(), column, width, table->extension));
  }
  // no memory for what the file cannot hold
  int status = shape.rows != 0 && width > file.Size() / shape.rows ? BAD_TFORM : 0;
  std::vector<T> values(status == 0 ? shape.rows * width : 0);
  fits_read_col(table->file, kDatatype<T>, shape.number, 1, 1, static_cast<LONGLONG>(values.size()), nullptr,
                values.data(), nullptr, &status);
  RequireSuccess(status, CannotRead(file, column));
  return values;
}

}  // namespace

template <typename T>
std::string Format(std::size_t width) {
  return (width == 1 ? "" : std::to_string(width)) + CppToFits<T>::format;
}
template <>
std::string Format<std::int32_t>(std::size_t /*width*/) {
  return "J";
}
template <>
std::string Format<std::string>(std::size_t /*width*/) {
  return fmt::format("{}A", kLongestText);
}
template std::string Format<double>(std::size_t);
template std::string Format<std::uint8_t>(std::size_t);
template std::string Format<std::uint16_t>(std::size_t);

template <typename T>
void WriteValues(const Handle& table, int column, const std::vector<T>& values) {
  WriteColumnPriv(table, values.data(), values.size(), kDatatype<T>, column, 1);
}
template <>
void WriteValues(const Handle& table, int column, const std::vector<std::string>& values) {
  for (std::size_t row = 0; row < values.size(); ++row) {
    if (values[row].size() > kLongestText) {
      throw std::runtime_error(fmt::format("the table \"{}\": expected texts of {} bytes at most, found one of {}: {}",
                                           table->extension, kLongestText, values[row].size(), values[row]));
    }
    std::string copy = values[row];  // CFITSIO takes no const text
    char* text = copy.data();
    int status = 0;
    fits_write_col(table->file, TSTRING, column, static_cast<LONGLONG>(row) + 1, 1, 1, static_cast<void*>(&text),
                   &status);
    RequireSuccess(status, fmt::format("cannot write column {} of the table \"{}\"", column, table->extension));
  }
}
template void WriteValues(const Handle&, int, const std::vector<double>&);
template void WriteValues(const Handle&, int, const std::vector<std::uint8_t>&);
template void WriteValues(const Handle&, int, const std::vector<std::uint16_t>&);
template void WriteValues(const Handle&, int, const std::vector<std::int32_t>&);

template <typename T>
std::vector<T> ReadValues(const InputFile& file, const Handle& table, const char* column, std::size_t /*width*/) {
  return ReadByLibrary<T>(file, table, column);
}
template <>
std::vector<double> ReadValues(const InputFile& file, const Handle& table, const char* column, std::size_t width) {
  if (width > 1) return ReadOthers<double>(file, table, column, width);
  return ReadByLibrary<double>(file, table, column);
}
template <>
std::vector<std::int32_t> ReadValues(const InputFile& file, const Handle& table, const char* column,
                                     std::size_t width) {
  return ReadOthers<std::int32_t>(file, table, column, width);
}
template <>
std::vector<std::string> ReadValues(const InputFile& file, const Handle& table, const char* column,
                                    std::size_t /*width*/) {
  const Shape shape = ShapeOf(table, column);
  int width = 0;
  int status = 0;
  fits_get_col_display_width(table->file, shape.number, &width, &status);
  if (width > static_cast<int>(kLongestText)) status = BAD_TFORM;
  std::vector<std::string> values(status == 0 ? shape.rows : 0);
  LONGLONG row = 0;
  for (std::string& value : values) {
    std::array<char, kLongestText + 1> buffer{};
    char* text = buffer.data();
    fits_read_col(table->file, TSTRING, shape.number, ++row, 1, 1, nullptr, static_cast<void*>(&text), nullptr,
                  &status);
    value = buffer.data();
  }
  RequireSuccess(status, CannotRead(file, column));
  return values;
}
template std::vector<std::uint8_t> ReadValues(const InputFile&, const Handle&, const char*, std::size_t);
template std::vector<std::uint16_t> ReadValues(const InputFile&, const Handle&, const char*, std::size_t);

}  // namespace quen::workbench::detail
