#include <filesystem>
#include <stdexcept>

#include "common/fits/fits.hpp"
#include "common/fits/src/checks.hpp"
#include "common/fits/src/header_check.hpp"
#include "common/fits/src/status.hpp"

namespace quen::common::Fits {
namespace {

/// Whether CFITSIO can sum up the current HDU. It would sum up all data that a damaged header declares, for hours if that
/// is absurdly much.
bool CanBeSummed(fitsfile* file) {
  LONGLONG header = 0;
  LONGLONG data = 0;
  LONGLONG end = 0;
  int status = 0;
  fits_get_hduaddrll(file, &header, &data, &end, &status);
  return status == 0 && end <= FileSize(file);
}

/// The deleter of handles. Whatever goes wrong here is ignored: releasing never throws and never reports.
void Cleanup(HandleType* handle) {
  if (handle == nullptr) return;
  if (handle->file != nullptr) {
    int status = 0;
    if (CanBeSummed(handle->file)) fits_write_chksum(handle->file, &status);
    status = 0;
    fits_close_file(handle->file, &status);
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

}  // namespace

// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables): see the header.
const char* CppToFits<unsigned char>::format = "B";
const char* CppToFits<unsigned short>::format = "U";
const char* CppToFits<double>::format = "D";
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)

Handle FitsFile(const std::string& path, const std::optional<std::string>& extension) {
  Handle handle = MakeHandle(true, extension);
  const std::string name = extension ? path + "[" + *extension + "]" : path;
  int status = CheckHeaders(name, READONLY);
  fits_open_file(&handle->file, name.c_str(), READONLY, &status);
  fits_get_hdu_type(handle->file, &handle->hdu_type, &status);
  if (status != 0 || handle->file == nullptr) {
    throw std::runtime_error("Fits: Could not open " + path + ", details: " + ReadStatus(status));
  }
  return handle;
}

Handle FitsFileWrite(const std::string& path, bool overwrite, const std::optional<std::string>& extension) {
  Handle handle = MakeHandle(false, extension);
  if (!overwrite) {
    int status = CheckHeaders(path, READWRITE);
    fits_open_file(&handle->file, path.c_str(), READWRITE, &status);
    if (status == 0 && handle->file != nullptr) {
      if (extension) {
        // A missing extension is no failure: the HDU type stays -1 and WriteTable will append the table.
        int ignored = 0;
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): CFITSIO reads the name only.
        fits_movnam_hdu(handle->file, BINARY_TBL, const_cast<char*>(extension->c_str()), 1, &ignored);
        fits_get_hdu_type(handle->file, &handle->hdu_type, &ignored);
      }
      return handle;
    }
    handle = MakeHandle(false, extension);
  }
  CreateFile(*handle, path, overwrite);
  return handle;
}

}  // namespace quen::common::Fits
