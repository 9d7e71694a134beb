#include <algorithm>
#include <array>
#include <stdexcept>

#include "common/fits/fits.hpp"
#include "common/fits/src/checks.hpp"
#include "common/fits/src/data_unit.hpp"
#include "common/fits/src/header_check.hpp"
#include "common/fits/src/kept_messages.hpp"
#include "common/fits/src/status.hpp"

namespace quen::common::Fits {
namespace {

constexpr std::size_t kMaxColumns = 64;

/// CFITSIO code under which elements of type T are read.
template <typename T>
constexpr int kDatatype = 0;
template <>
constexpr int kDatatype<unsigned char> = TBYTE;
template <>
constexpr int kDatatype<unsigned short> = TSHORT;  // signed on purpose, as all 16-bit data of the system
template <>
constexpr int kDatatype<double> = TDOUBLE;

using Column = std::tuple<std::string, int, int>;

/// Name, number and datatype code of column `number`, counted from 1.
Column ReadColumnParams(const Handle& handle, int number) {
  std::string as_template = std::to_string(number);  // CFITSIO takes a whole number for a column's number
  std::array<char, FLEN_VALUE> name{};
  int found = 0;
  int datatype = 0;
  long repeat = 0;
  long width = 0;
  int status = 0;
  fits_get_colname(handle->file, CASEINSEN, as_template.data(), name.data(), &found, &status);
  fits_get_coltype(handle->file, number, &datatype, &repeat, &width, &status);
  if (status != 0 || found != number) {
    throw std::runtime_error("Fits: Error getting column params: " + ReadStatus(status));
  }
  return {name.data(), number, datatype};
}

/// Whether CFITSIO, asked for its columns before, knows them. After a damaged header it may count columns whose
/// description is a null pointer, which it would follow.
bool KnowsItsColumns(const Handle& handle) {
  const FITSfile& state = *handle->file->Fptr;
  return state.tfield == 0 || state.tableptr != nullptr;
}

/// Whether CFITSIO has found a column's format. It would divide by the width of the elements, which is zero, otherwise.
bool HasFormat(const tcolumn& column) {
  constexpr int kNotFound = -9999;
  return column.tdatatype != kNotFound || column.twidth != 0;
}

/// Whether a table keeps the rows that CFITSIO has in mind. It forgets those that it could not make room for when it
/// reads the header again.
bool KeepsItsRows(const Handle& handle) {
  const FITSfile& state = *handle->file->Fptr;
  if (state.hdutype == IMAGE_HDU) return true;
  LONGLONG rows = state.numrows;
  int status = 0;
  const KeptMessages kept;
  fits_read_key_lnglng(handle->file, "NAXIS2", &rows, nullptr, &status);
  return rows == state.numrows || rows == state.origrows;
}

LONGLONG HeapEnd(const FITSfile& state) {
  return static_cast<LONGLONG>(static_cast<ULONGLONG>(state.heapstart) + static_cast<ULONGLONG>(state.heapsize));
}

/// 0, or why elements cannot be written into a column after a damaged header: CFITSIO does not know it, or would move a
/// heap that begins before the data or among the rows. What is no column is left to it.
int CheckColumn(const Handle& handle, int column, std::size_t count, int first_row) {
  const FITSfile& state = *handle->file->Fptr;
  int status = 0;
  if (state.datastart < 0) fits_set_hdustruc(handle->file, &status);  // reads the header, as writing would have to
  if (status != 0 || column < 1 || column > state.tfield) return status;
  if (!KnowsItsColumns(handle) || !HasFormat(state.tableptr[column - 1])) return BAD_TFORM;
  const tcolumn& params = state.tableptr[column - 1];
  const bool is_list = params.tdatatype < 0;  // its elements go behind the heap, all of one row
  const auto elements = is_list ? 0 : (static_cast<LONGLONG>(count) - 1) / std::max<LONGLONG>(params.trepeat, 1);
  const LONGLONG added_rows = first_row + elements - state.numrows;
  const bool moves_heap = added_rows > 0 && (state.lasthdu == 0 || state.heapsize > 0);
  if (added_rows > 0 && state.rowlength > kMostFilled) return CheckFilling(false);
  if (moves_heap && HeapEnd(state) < state.numrows * state.rowlength) return BAD_HEAP_PTR;
  const LONGLONG room = (kBlock - HeapEnd(state) % kBlock) % kBlock;
  const bool needs_block = moves_heap && added_rows * state.rowlength > room;
  return CheckFilling(!(is_list || needs_block) || CanGrow(handle->file, 1, 0));
}

/// 0, or why no HDU can be appended: CFITSIO goes through the last that it has seen, and all after it.
int CheckWayToEnd(const Handle& handle) {
  const FITSfile& state = *handle->file->Fptr;
  const Way way = WayFrom(state.filename, state.headstart[state.maxhdu]);
  if (way.status != 0) return Refuse(way);
  return CheckFilling(way.can_be_left && way.can_append && CanBeLeft(handle->file));
}

// NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): CFITSIO reads the text only.
char* Mutable(const std::string& text) { return const_cast<char*>(text.c_str()); }

}  // namespace

TableParams ReadTableParams(const Handle& handle, const std::optional<std::string>& column) {
  if (handle->hdu_type != ASCII_TBL && handle->hdu_type != BINARY_TBL) {
    throw std::runtime_error("Fits: Handle opened for primary image HDU");
  }
  int status = 0;
  int column_count = 0;
  long row_count = 0;
  fits_get_num_cols(handle->file, &column_count, &status);
  fits_get_num_rows(handle->file, &row_count, &status);
  if (status == 0 && !KnowsItsColumns(handle)) status = BAD_TFIELDS;
  if (status != 0) throw std::runtime_error("Fits: Error getting table params: " + ReadStatus(status));

  std::vector<Column> columns;
  for (int number = 1; number <= column_count; ++number) {
    Column params = ReadColumnParams(handle, number);
    if (column && std::get<0>(params) != *column) continue;
    columns.push_back(std::move(params));
    if (column) break;
  }
  std::vector<unsigned long> shape = {columns.size(), static_cast<unsigned long>(row_count)};
  return {std::move(shape), std::move(columns)};
}

std::size_t ReadColumnPriv(const Handle& handle, void* buffer, std::size_t capacity, int datatype,
                           const std::string& column) {
  const TableParams params = ReadTableParams(handle, column);
  // Spelled as hosts know it: the text is the interface.
  if (params.second.empty()) throw std::invalid_argument("Fits: Column \"" + column + "\" not foud");
  const std::size_t count = ElementCount(params.first);
  CheckBuffer(count, capacity);

  std::array<double, 4> null_value{};  // zero in every element type
  int any_null = 0;
  int status = 0;
  fits_read_col(handle->file, datatype, std::get<1>(params.second.front()), 1, 1, static_cast<LONGLONG>(count),
                null_value.data(), buffer, &any_null, &status);
  if (status != 0) throw std::runtime_error("Fits: Error reading column \"" + column + "\": " + ReadStatus(status));
  if (any_null != 0) throw std::runtime_error("Fits: Column \"" + column + "\" contains undefined entries");
  return capacity;
}

template <typename T>
std::vector<T> ReadColumnOrThrow(const Handle& handle, const std::string& column) {
  const TableParams params = ReadTableParams(handle, column);
  if (params.second.empty()) throw std::runtime_error("ReadColumnOrThrow: misconfigured column: " + column);
  const std::size_t count = ElementCount(params.first);
  std::vector<T> values(count);
  ReadColumnPriv(handle, values.data(), values.size(), kDatatype<T>, column);
  return values;
}

template std::vector<unsigned char> ReadColumnOrThrow(const Handle&, const std::string&);
template std::vector<unsigned short> ReadColumnOrThrow(const Handle&, const std::string&);
template std::vector<double> ReadColumnOrThrow(const Handle&, const std::string&);

void WriteTable(const Handle& handle, const std::vector<std::pair<std::string, std::string>>& columns) {
  CheckWritable(handle);
  if (handle->extension.empty()) throw std::runtime_error("Fits: Handle opened for primary image HDU");
  if (handle->hdu_type == -1) handle->hdu_type = BINARY_TBL;

  const std::size_t count = std::min(columns.size(), kMaxColumns);
  const std::string no_unit;
  std::array<char*, kMaxColumns> names{};
  std::array<char*, kMaxColumns> formats{};
  std::array<char*, kMaxColumns> units{};
  for (std::size_t k = 0; k < count; ++k) {
    names[k] = Mutable(columns[k].first);
    formats[k] = Mutable(columns[k].second);
    units[k] = Mutable(no_unit);
  }
  int status = CheckWayToEnd(handle);
  fits_create_tbl(handle->file, BINARY_TBL, 0, static_cast<int>(count), names.data(), formats.data(), units.data(),
                  handle->extension.c_str(), &status);
  if (status != 0) throw std::runtime_error("Fits: Could not create table, details: " + ReadStatus(status));
}

std::size_t WriteColumnPriv(const Handle& handle, const void* data, std::size_t count, int datatype, int column,
                            int first_row) {
  CheckWritable(handle);
  int status = CheckFilling(!KeepsItsRows(handle) || CanBeLeft(handle->file));
  if (status == 0) status = CheckColumn(handle, column, count, first_row);
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): CFITSIO reads the data only.
  fits_write_col(handle->file, datatype, column, first_row, 1, static_cast<LONGLONG>(count), const_cast<void*>(data),
                 &status);
  if (status != 0) {
    throw std::runtime_error("Fits: Error writing column " + std::to_string(column) + ": " + ReadStatus(status));
  }
  return count;
}

std::size_t WriteColumnPriv(const Handle& handle, const void* data, std::size_t count, int datatype,
                            const std::string& column, int first_row) {
  CheckWritable(handle);
  const TableParams params = ReadTableParams(handle, column);
  if (params.second.empty()) throw std::invalid_argument("Fits: Column \"" + column + "\" not found");
  const auto& [name, number, column_datatype] = params.second.front();
  if (column_datatype != datatype) {
    // Spelled as hosts know it: the text is the interface.
    throw std::invalid_argument("Fits: Column \"" + name + "\" (index: " + std::to_string(number) + ")" +
                                " data type mismatch, expected: " + std::to_string(datatype) +
                                " , acctual: " + std::to_string(column_datatype));
  }
  return WriteColumnPriv(handle, data, count, datatype, number, first_row);
}

}  // namespace quen::common::Fits
