#include "workbench/fits/content.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>
#include <string_view>

namespace quen::workbench {
namespace {

using quen::common::Fits::Handle;

/// Bytes of an image's data, be they more than any number of CFITSIO's.
double ImageSize(const Handle& handle) {
  constexpr double kBitsPerByte = 8.0;
  const auto [axes, bitpix] = quen::common::Fits::ReadImgParams(handle);
  double size = axes.empty() ? 0.0 : std::abs(bitpix) / kBitsPerByte;
  for (const std::size_t axis : axes) size *= static_cast<double>(axis);
  return size;
}

/// @throws std::runtime_error  what the header declares is not in the file
void RequireData(const Handle& handle, const InputFile& file) {
  constexpr LONGLONG kBlock = 2880;
  const auto size = static_cast<LONGLONG>(file.Size());
  LONGLONG end = 0;
  LONGLONG rows = 0;
  int status = 0;
  fits_get_hduaddrll(handle->file, nullptr, nullptr, &end, &status);
  if (handle->hdu_type != IMAGE_HDU) fits_get_num_rowsll(handle->file, &rows, &status);
  fits_clear_errmsg();
  if (status != 0) {
    throw std::runtime_error(fmt::format("{}: its header cannot be read (CFITSIO status {})", file.Name(), status));
  }
  // The last block may be cut, which its reading tells. Rows may be declared to be empty, any number of them.
  const bool is_image = handle->hdu_type == IMAGE_HDU;
  const bool has_pixels = !is_image || ImageSize(handle) <= static_cast<double>(size);
  if (has_pixels && end - kBlock < size && rows <= size) return;
  throw std::runtime_error(
      fmt::format("{}: expected {:.0f} bytes, as its header declares, found {}; the file may be cut short", file.Name(),
                  std::max(is_image ? ImageSize(handle) : 0.0, static_cast<double>(end)), size));
}

}  // namespace

void RequireFits(const InputFile& file) {
  if (!IsFits(file)) throw std::runtime_error(file.Name() + ": expected a FITS file, found something else");
}

bool IsFits(const InputFile& file) {
  constexpr std::string_view kStart = "SIMPLE  =";
  return file.Beginning(kStart.size()) == kStart;
}

Handle OpenFits(const InputFile& file, const std::optional<std::string>& extension) {
  RequireFits(file);
  return Reading(file, [&] {
    fits_clear_errmsg();
    Handle handle = quen::common::Fits::FitsFile(file.Path(), extension);
    RequireData(handle, file);
    return handle;
  });
}

bool HasTable(const InputFile& file, const char* name) {
  try {
    return quen::common::Fits::FitsFile(file.Path(), name)->hdu_type == BINARY_TBL;
  } catch (const std::runtime_error&) {
    fits_clear_errmsg();
    return false;
  }
}

void RequireTable(const InputFile& file, const char* name) {
  RequireFits(file);
  if (!HasTable(file, name)) {
    throw std::runtime_error(file.Name() + ": expected a table \"" + name + "\", found none");
  }
}

double NumberKey(const Handle& file, const char* key, double otherwise) {
  double value = otherwise;
  int status = 0;
  fits_read_key(file->file, TDOUBLE, key, &value, nullptr, &status);
  if (status != 0) fits_clear_errmsg();
  return status == 0 ? value : otherwise;
}

std::string TextKey(const Handle& file, const char* key) {
  std::array<char, FLEN_VALUE> value{};
  int status = 0;
  fits_read_key(file->file, TSTRING, key, value.data(), nullptr, &status);
  if (status != 0) fits_clear_errmsg();
  return status == 0 ? value.data() : "";
}

}  // namespace quen::workbench
