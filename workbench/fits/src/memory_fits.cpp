#include "workbench/fits/memory_fits.hpp"

#include <array>
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

MemoryFits::MemoryFits(Dates dates)
    : dates_(dates),
      memory_(
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
  Check(status);
  WriteCheckSums();
}

void MemoryFits::WriteCheckSums() {
  int status = 0;
  fits_write_chksum(handle_->file, &status);
  if (dates_ == Dates::kNone) {
    // The checksum is a text which makes the sum over the HDU minus zero; as long as it is sixteen zeros, the sum is
    // what it has to make up for.
    constexpr int kComplement = 1;
    constexpr const char* kCheckSum = "CHECKSUM";
    constexpr const char* kCheckSumComment = "HDU checksum";
    unsigned long data_sum = 0;
    unsigned long sum = 0;
    std::array<char, FLEN_VALUE> text{};
    fits_modify_comment(handle_->file, "DATASUM", "data unit checksum", &status);
    fits_modify_key_str(handle_->file, kCheckSum, "0000000000000000", kCheckSumComment, &status);
    fits_get_chksum(handle_->file, &data_sum, &sum, &status);
    fits_encode_chksum(sum, kComplement, text.data());
    fits_modify_key_str(handle_->file, kCheckSum, text.data(), kCheckSumComment, &status);
  }
  Check(status);
}

const Handle& MemoryFits::AddTable(const std::string& name,
                                   const std::vector<std::pair<std::string, std::string>>& columns) {
  WriteCheckSums();
  handle_->extension = name;
  handle_->hdu_type = -1;
  quen::common::Fits::WriteTable(handle_, columns);
  return handle_;
}

std::string MemoryFits::Bytes() {
  WriteCheckSums();
  int status = 0;
  LONGLONG end = 0;
  fits_flush_file(handle_->file, &status);
  fits_get_hduaddrll(handle_->file, nullptr, nullptr, &end, &status);
  Check(status);
  return {static_cast<const char*>(memory_->bytes), static_cast<std::size_t>(end)};
}

}  // namespace quen::workbench
