#include "common/fits/test/plain_fits.hpp"

#include <filesystem>
#include <stdexcept>

// NOLINTBEGIN: a second reading of the same words, kept as literal as possible.

namespace quen::testing {
namespace {

using common::Fits::Handle;
using common::Fits::HandleType;
using common::Fits::ImgParams;
using common::Fits::TableParams;

std::string ReadStatus(int status) {
  if (status == 0) return "";
  char text[256] = {};
  ffgerr(status, text);
  std::string result = text;
  result += ", ";
  while (ffgmsg(text) != 0) result += text;
  return result;
}

void Release(HandleType* handle) {
  if (handle == nullptr) return;
  if (handle->file != nullptr) {
    int status = 0;
    ffpcks(handle->file, &status);
    status = 0;
    ffclos(handle->file, &status);
    handle->file = nullptr;
  }
  delete handle;
}

Handle Make(bool read_only, const std::optional<std::string>& extension) {
  return Handle(new HandleType{nullptr, -1, read_only, extension ? *extension : ""}, &Release);
}

std::size_t Product(const std::vector<std::size_t>& lengths) {
  std::size_t product = 1;
  for (std::size_t length : lengths) product *= length;
  return product;
}

std::string Text(std::size_t number) { return std::to_string(number); }
std::string Text(int number) { return std::to_string(number); }

}  // namespace

Handle Plain::FitsFile(const std::string& path, const std::optional<std::string>& extension) {
  Handle handle = Make(true, extension);
  const std::string name = extension ? path + "[" + *extension + "]" : path;
  int status = 0;
  ffopen(&handle->file, name.c_str(), READONLY, &status);
  ffghdt(handle->file, &handle->hdu_type, &status);
  if (status != 0 || handle->file == nullptr) {
    throw std::runtime_error("Fits: Could not open " + path + ", details: " + ReadStatus(status));
  }
  return handle;
}

Handle Plain::FitsFileWrite(const std::string& path, bool overwrite, const std::optional<std::string>& extension) {
  Handle handle = Make(false, extension);
  int status = 0;
  if (!overwrite) {
    ffopen(&handle->file, path.c_str(), READWRITE, &status);
    if (status == 0 && handle->file != nullptr) {
      if (extension) {
        int second = 0;
        ffmnhd(handle->file, BINARY_TBL, const_cast<char*>(extension->c_str()), 1, &second);
        ffghdt(handle->file, &handle->hdu_type, &second);
      }
      return handle;
    }
  }
  status = 0;
  handle = Make(false, extension);
  const std::filesystem::path parent = std::filesystem::path(path).parent_path();
  if (!parent.empty()) std::filesystem::create_directories(parent);
  const std::string name = overwrite ? "!" + path : path;
  int scratch = 0;
  ffinit(&handle->file, name.c_str(), &status);
  ffdhdu(handle->file, &scratch, &status);
  ffpcks(handle->file, &status);
  if (status != 0 || handle->file == nullptr) {
    throw std::runtime_error("Fits: Could not open/create " + path + ", details: " + ReadStatus(status));
  }
  return handle;
}

ImgParams Plain::ReadImgParams(const Handle& handle) {
  if (handle->hdu_type != 0) throw std::runtime_error("Fits: Handle opened for an exttension HDU");
  int status = 0;
  int axes = 0;
  ffgidm(handle->file, &axes, &status);
  if (status != 0) throw std::runtime_error("Fits: Error getting the number of axes: " + ReadStatus(status));
  std::vector<long> lengths(static_cast<std::size_t>(axes), 0);
  int bitpix = 0;
  ffgipr(handle->file, axes, &bitpix, &axes, lengths.data(), &status);
  if (status != 0) throw std::runtime_error("Fits: Error getting img params: " + ReadStatus(status));
  return {std::vector<std::size_t>(lengths.begin(), lengths.end()), bitpix};
}

void Plain::ReadImgPriv(const Handle& handle, void* buffer, std::size_t count, int bitpix, int datatype,
                        const std::optional<std::vector<std::size_t>>& dims) {
  const ImgParams params = ReadImgParams(handle);
  if (params.second != bitpix) {
    throw std::invalid_argument("Fits: File has wrong image type, expected: " + Text(bitpix) +
                                " , acctual: " + Text(params.second));
  }
  const std::size_t n = Product(params.first);
  if (count < n) {
    throw std::invalid_argument("Fits: Provided buffer is too small, expected at least: " + Text(n) +
                                " , acctual: " + Text(count));
  }
  if (dims) {
    if (dims->size() != params.first.size()) {
      throw std::runtime_error("Fits: Image dimansions do not match, expected: " + Text(dims->size()) +
                               " dimensions, actual: " + Text(params.first.size()) + " dimensions");
    }
    for (std::size_t i = 0; i < dims->size(); ++i) {
      if ((*dims)[i] != params.first[i]) {
        throw std::runtime_error("Fits: Image size does not match for the " + Text(i) +
                                 "th dimension, expected: " + Text((*dims)[i]) + ", acctual: " + Text(params.first[i]));
      }
    }
  }
  int status = 0;
  ffgpv(handle->file, datatype, 1, static_cast<LONGLONG>(n), nullptr, buffer, nullptr, &status);
  if (status != 0) throw std::runtime_error("Fits: Error reading image: " + ReadStatus(status));
}

void Plain::ReadImgSlicePriv(const Handle& handle, void* buffer, std::size_t count, int bitpix, int datatype,
                             std::size_t slice) {
  const ImgParams params = ReadImgParams(handle);
  if (params.first.size() != 3) throw std::invalid_argument("Fits: Expected a 3D image");
  if (params.second != bitpix) {
    throw std::invalid_argument("Fits: File has wrong image type, expected: " + Text(bitpix) +
                                " , acctual: " + Text(params.second));
  }
  if (slice >= params.first[2]) throw std::out_of_range("Fits: Slice index is outside the third dimension");
  const std::size_t n = params.first[0] * params.first[1];
  if (count < n) {
    throw std::invalid_argument("Fits: Provided buffer is too small, expected at least: " + Text(n) +
                                " , acctual: " + Text(count));
  }
  long first[3] = {1, 1, static_cast<long>(slice) + 1};
  long last[3] = {static_cast<long>(params.first[0]), static_cast<long>(params.first[1]), static_cast<long>(slice) + 1};
  long steps[3] = {1, 1, 1};
  int status = 0;
  ffgsv(handle->file, datatype, first, last, steps, nullptr, buffer, nullptr, &status);
  if (status != 0) throw std::runtime_error("Fits: Error reading image slice: " + ReadStatus(status));
}

void Plain::WriteImgPriv(const Handle& handle, const void* buffer, std::size_t count, int bitpix, int datatype,
                         const std::vector<std::size_t>& dims) {
  const std::size_t n = Product(dims);
  if (count != n) {
    throw std::invalid_argument("Fits: Provided image buffer size: " + Text(count) +
                                " does not match size from provided dimensions: " + Text(n));
  }
  if (handle->read_only) throw std::runtime_error("Fits: Handle opened for reading only");
  if (!handle->extension.empty()) throw std::runtime_error("Fits: Handle opened for extension table HDU");
  if (handle->hdu_type == -1) handle->hdu_type = 0;
  std::vector<long> lengths(dims.begin(), dims.end());
  int status = 0;
  int scratch = 0;
  ffmahd(handle->file, 1, &scratch, &status);
  ffrsim(handle->file, bitpix, static_cast<int>(lengths.size()), lengths.data(), &status);
  ffppr(handle->file, datatype, 1, static_cast<LONGLONG>(count), const_cast<void*>(buffer), &status);
  if (status != 0) throw std::runtime_error("Fits: Error writing image: " + ReadStatus(status));
}

void Plain::ReadImgHeaderPriv(const Handle& handle, void* value, int datatype, const std::string& key) {
  if (handle->hdu_type != 0) throw std::runtime_error("Fits: Handle opened for an exttension HDU");
  char comment[81] = {};
  int status = 0;
  ffgky(handle->file, datatype, key.c_str(), value, comment, &status);
  if (status != 0) throw std::runtime_error("Fits: Error getting the header key: " + key);
}

TableParams Plain::ReadTableParams(const Handle& handle, const std::optional<std::string>& column) {
  if (handle->hdu_type != 1 && handle->hdu_type != 2) {
    throw std::runtime_error("Fits: Handle opened for primary image HDU");
  }
  int status = 0;
  int columns = 0;
  long rows = 0;
  ffgncl(handle->file, &columns, &status);
  ffgnrw(handle->file, &rows, &status);
  if (status != 0) throw std::runtime_error("Fits: Error getting table params: " + ReadStatus(status));
  std::vector<std::tuple<std::string, int, int>> list;
  for (int i = 1; i <= columns; ++i) {
    std::string pattern = std::to_string(i);
    char name[81] = {};
    int number = 0;
    int code = 0;
    long repeat = 0;
    long width = 0;
    ffgcnn(handle->file, 0, pattern.data(), name, &number, &status);
    ffgtcl(handle->file, i, &code, &repeat, &width, &status);
    if (status != 0 || number != i) {
      throw std::runtime_error("Fits: Error getting column params: " + ReadStatus(status));
    }
    if (column) {
      if (*column == name) return {{1UL, static_cast<unsigned long>(rows)}, {{name, number, code}}};
    } else {
      list.emplace_back(name, i, code);
    }
  }
  return {{list.size(), static_cast<unsigned long>(rows)}, list};
}

std::size_t Plain::ReadColumnPriv(const Handle& handle, void* buffer, std::size_t capacity, int datatype,
                                  const std::string& column) {
  const TableParams params = ReadTableParams(handle, column);
  if (params.second.empty()) throw std::invalid_argument("Fits: Column \"" + column + "\" not foud");
  const std::size_t count = params.first[0] * params.first[1];
  if (capacity < count) {
    throw std::invalid_argument("Fits: Provided buffer is too small, expected at least: " + Text(count) +
                                " , acctual: " + Text(capacity));
  }
  char zeros[64] = {};
  int any_null = 0;
  int status = 0;
  ffgcv(handle->file, datatype, std::get<1>(params.second[0]), 1, 1, static_cast<LONGLONG>(count), zeros, buffer,
        &any_null, &status);
  if (status != 0) throw std::runtime_error("Fits: Error reading column \"" + column + "\": " + ReadStatus(status));
  if (any_null != 0) throw std::runtime_error("Fits: Column \"" + column + "\" contains undefined entries");
  return capacity;
}

void Plain::WriteTable(const Handle& handle, const std::vector<std::pair<std::string, std::string>>& columns) {
  if (handle->read_only) throw std::runtime_error("Fits: Handle opened for reading only");
  if (handle->extension.empty()) throw std::runtime_error("Fits: Handle opened for primary image HDU");
  if (handle->hdu_type == -1) handle->hdu_type = 2;
  char* names[64] = {};
  char* formats[64] = {};
  char* units[64] = {};
  char empty[] = "";
  std::size_t n = 0;
  for (; n < 64 && n < columns.size(); ++n) {
    names[n] = const_cast<char*>(columns[n].first.c_str());
    formats[n] = const_cast<char*>(columns[n].second.c_str());
    units[n] = empty;
  }
  int status = 0;
  ffcrtb(handle->file, 2, 0, static_cast<int>(n), names, formats, units, handle->extension.c_str(), &status);
  if (status != 0) throw std::runtime_error("Fits: Could not create table, details: " + ReadStatus(status));
}

std::size_t Plain::WriteColumnPriv(const Handle& handle, const void* data, std::size_t count, int datatype, int column,
                                   int first_row) {
  if (handle->read_only) throw std::runtime_error("Fits: Handle opened for reading only");
  int status = 0;
  ffpcl(handle->file, datatype, column, first_row, 1, static_cast<LONGLONG>(count), const_cast<void*>(data), &status);
  if (status != 0) throw std::runtime_error("Fits: Error writing column " + Text(column) + ": " + ReadStatus(status));
  return count;
}

std::size_t Plain::WriteColumnPriv(const Handle& handle, const void* data, std::size_t count, int datatype,
                                   const std::string& column, int first_row) {
  if (handle->read_only) throw std::runtime_error("Fits: Handle opened for reading only");
  const TableParams params = ReadTableParams(handle, column);
  if (params.second.empty()) throw std::invalid_argument("Fits: Column \"" + column + "\" not found");
  const auto& [name, number, code] = params.second[0];
  if (code != datatype) {
    throw std::invalid_argument("Fits: Column \"" + name + "\" (index: " + Text(number) + ")" +
                                " data type mismatch, expected: " + Text(datatype) + " , acctual: " + Text(code));
  }
  return WriteColumnPriv(handle, data, count, datatype, number, first_row);
}

}  // namespace quen::testing

// NOLINTEND
