#pragma once

#include "common/fits/fits.hpp"

/// @file
/// The operations of common/fits/fits.hpp once more, as plain as they can be said: one CFITSIO call after the other,
/// and nothing that guards against damaged files. What the library does is compared with this, file by file.

namespace quen::testing {

struct Plain {
  using Handle = common::Fits::Handle;
  using ImgParams = common::Fits::ImgParams;
  using TableParams = common::Fits::TableParams;

  static Handle FitsFile(const std::string& path, const std::optional<std::string>& extension);
  static Handle FitsFileWrite(const std::string& path, bool overwrite, const std::optional<std::string>& extension);

  static ImgParams ReadImgParams(const Handle& handle);
  static void ReadImgPriv(const Handle& handle, void* buffer, std::size_t count, int bitpix, int datatype,
                          const std::optional<std::vector<std::size_t>>& dims);
  static void ReadImgSlicePriv(const Handle& handle, void* buffer, std::size_t count, int bitpix, int datatype,
                               std::size_t slice);
  static void WriteImgPriv(const Handle& handle, const void* buffer, std::size_t count, int bitpix, int datatype,
                           const std::vector<std::size_t>& dims);
  static void ReadImgHeaderPriv(const Handle& handle, void* value, int datatype, const std::string& key);

  static TableParams ReadTableParams(const Handle& handle, const std::optional<std::string>& column);
  static std::size_t ReadColumnPriv(const Handle& handle, void* buffer, std::size_t capacity, int datatype,
                                    const std::string& column);
  static void WriteTable(const Handle& handle, const std::vector<std::pair<std::string, std::string>>& columns);
  static std::size_t WriteColumnPriv(const Handle& handle, const void* data, std::size_t count, int datatype,
                                     int column, int first_row);
  static std::size_t WriteColumnPriv(const Handle& handle, const void* data, std::size_t count, int datatype,
                                     const std::string& column, int first_row);

  template <typename T>
  static std::vector<T> ReadColumnOrThrow(const Handle& handle, const std::string& column) {
    const TableParams params = ReadTableParams(handle, column);
    if (params.second.empty()) throw std::runtime_error("ReadColumnOrThrow: misconfigured column: " + column);
    std::vector<T> values(params.first[0] * params.first[1]);
    constexpr int kCode = sizeof(T) == 1 ? 11 : sizeof(T) == 2 ? 21 : 82;
    ReadColumnPriv(handle, values.data(), values.size(), kCode, column);
    return values;
  }
};

}  // namespace quen::testing
