#include <filesystem>
#include <stdexcept>

#include "common/fits/fits.hpp"
#include "common/fits/src/data_unit.hpp"
#include "common/fits/src/header_check.hpp"
#include "common/fits/src/status.hpp"

namespace quen::common {
namespace {

using Fits::Handle;
using Fits::HandleType;

/// The deleter of handles. Whatever goes wrong here is ignored: releasing never throws and never reports.
void Cleanup(HandleType* handle) {
  if (handle == nullptr) return;
  if (handle->file != nullptr) {
    Fits::SumUp(handle->file);
    Fits::CloseFile(handle->file);
    handle->file = nullptr;
  }
  delete handle;  // NOLINT(cppcoreguidelines-owning-memory): the deleter of Handle.
}

Handle MakeHandle(bool read_only, const std::optional<std::string>& extension) {
  return {new HandleType{nullptr, -1, read_only, extension.value_or("")}, &Cleanup};
}

/// Creates a file that holds an empty primary image with checksums.
void CreateFile(HandleType& handle, const std::string& path, bool overwrite) {
  const std::filesystem::path parent = std::filesystem::path(path).parent_path();
  if (!parent.empty()) std::filesystem::create_directories(parent);

  int status = 0;
  int hdu_type = 0;
  fits_create_file(&handle.file, ((overwrite ? "!" : "") + path).c_str(), &status);
  fits_delete_hdu(handle.file, &hdu_type, &status);
  fits_write_chksum(handle.file, &status);
  if (status != 0 || handle.file == nullptr) {
    throw std::runtime_error("Fits: Could not open/create " + path + ", details: " + ReadStatus(status));
  }
}

/// Opens an existing file, if that does nobody harm.
void OpenFile(HandleType& handle, const std::string& name, int mode, int* status) {
  const Fits::Way way = Fits::WayTo(name);
  *status = Fits::Refuse(way);
  if (mode == READWRITE && !way.can_be_left) *status = END_OF_FILE;
  fits_open_file(&handle.file, name.c_str(), mode, status);
}

/// Moves to a binary table if there is one; the HDU type stays not known otherwise.
void MoveToTable(HandleType& handle, const std::string& path, const std::string& extension) {
  const Fits::Way way = Fits::WayToTable(path, extension);
  int ignored = Fits::Refuse(way);
  std::optional<Fits::WithoutFilling> as_it_is;
  if (!way.can_be_left) as_it_is.emplace(handle.file);
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): CFITSIO reads the name only.
  fits_movnam_hdu(handle.file, BINARY_TBL, const_cast<char*>(extension.c_str()), 1, &ignored);
  fits_get_hdu_type(handle.file, &handle.hdu_type, &ignored);
}

}  // namespace
}  // namespace quen::common

namespace quen::common::Fits {

// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables): see the header.
const char* CppToFits<unsigned char>::format = "B";
const char* CppToFits<unsigned short>::format = "U";
const char* CppToFits<double>::format = "D";
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)

Handle FitsFile(const std::string& path, const std::optional<std::string>& extension) {
  Handle handle = MakeHandle(true, extension);
  const std::string name = extension ? path + "[" + *extension + "]" : path;
  int status = 0;
  OpenFile(*handle, name, READONLY, &status);
  fits_get_hdu_type(handle->file, &handle->hdu_type, &status);
  if (status != 0 || handle->file == nullptr) {
    throw std::runtime_error("Fits: Could not open " + path + ", details: " + ReadStatus(status));
  }
  return handle;
}

Handle FitsFileWrite(const std::string& path, bool overwrite, const std::optional<std::string>& extension) {
  Handle handle = MakeHandle(false, extension);
  if (!overwrite) {
    int status = 0;
    OpenFile(*handle, path, READWRITE, &status);
    if (status == 0 && handle->file != nullptr) {
      // A missing extension is no failure: WriteTable will append the table.
      if (extension) MoveToTable(*handle, path, *extension);
      return handle;
    }
    handle = MakeHandle(false, extension);
  }
  CreateFile(*handle, path, overwrite);
  return handle;
}

}  // namespace quen::common::Fits
