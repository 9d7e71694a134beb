#include "workbench/fits/memory_fits.hpp"

#include <cstdlib>

#include "workbench/fits/src/cfitsio_status.hpp"

namespace quen::workbench {

using quen::common::Fits::Handle;
using quen::common::Fits::HandleType;

/// What CFITSIO keeps a file in, and lets grow.
struct MemoryFits::Memory {
  void* bytes = nullptr;
  std::size_t size = 0;
};

namespace {

void Check(int status) { RequireSuccess(status, "cannot make a FITS file in memory"); }

void Close(HandleType* handle) {
  int status = 0;
  if (handle->file != nullptr) fits_close_file(handle->file, &status);
  delete handle;  // NOLINT(cppcoreguidelines-owning-memory): the deleter of a handle
}

}  // namespace

MemoryFits::MemoryFits()
    : memory_(
          new Memory,
          [](Memory* memory) {
            std::free(memory->bytes);  // NOLINT(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory): realloc's
            delete memory;             // NOLINT(cppcoreguidelines-owning-memory): as the deleter it is
          }),
      handle_(new HandleType{nullptr, -1, false, ""}, &Close) {
  constexpr std::size_t kGrowth = 1U << 20U;
  fits_clear_errmsg();
  int status = 0;
  int type = 0;
  fits_create_memfile(&handle_->file, &memory_->bytes, &memory_->size, kGrowth, std::realloc, &status);
  fits_delete_hdu(handle_->file, &type, &status);  // leaves an empty image
  fits_write_chksum(handle_->file, &status);
  Check(status);
}

const Handle& MemoryFits::AddTable(const std::string& name,
                                   const std::vector<std::pair<std::string, std::string>>& columns) {
  int status = 0;
  fits_write_chksum(handle_->file, &status);
  Check(status);
  handle_->extension = name;
  handle_->hdu_type = -1;
  quen::common::Fits::WriteTable(handle_, columns);
  return handle_;
}

std::string MemoryFits::Bytes() {
  int status = 0;
  LONGLONG end = 0;
  fits_write_chksum(handle_->file, &status);
  fits_flush_file(handle_->file, &status);
  fits_get_hduaddrll(handle_->file, nullptr, nullptr, &end, &status);
  Check(status);
  return {static_cast<const char*>(memory_->bytes), static_cast<std::size_t>(end)};
}

}  // namespace quen::workbench
