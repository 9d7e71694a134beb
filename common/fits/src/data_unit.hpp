#pragma once

#include <fitsio.h>

#include <cstdint>
#include <string_view>

/// @file
/// What CFITSIO does at the end of a data unit, when it sums the unit up and before it leaves it in a file opened for
/// writing: it puts zeros behind the data, up to a whole block, wherever a header says that they end. After a damaged
/// header that may be beyond a buffer, or gigabytes beyond the file, which it fills up.

namespace quen::common::Fits {

inline constexpr std::int64_t kBlock = 2880;              ///< bytes; headers and data units are padded to whole ones
inline constexpr std::int64_t kMostFilled = 100'000'000;  ///< bytes that CFITSIO may fill up at a time

/// Whether CFITSIO can leave an HDU of a file opened for writing: it writes within its buffers, and the file grows by
/// no more than 100 MB.
/// @param end   where in the file the data are to end, as CFITSIO adds it up: wrapped around where sizes are absurd
/// @param size  of the file, bytes
bool CanBeLeft(std::int64_t end, std::int64_t size);

/// Whether a column of lists has the format of one to CFITSIO, which then goes over all its rows before it leaves an
/// HDU with a heap, those included that are not there.
bool IsList(std::string_view format);

/// Whether CFITSIO can do so: not for more than about a second over rows that are not there.
/// @param lists  how many such columns there are
/// @param size   of the file, bytes
bool CanBeGoneOver(std::int64_t lists, std::int64_t rows, std::int64_t row_length, std::int64_t size);

/// Whether both is so for the HDU that the file is positioned on, as CFITSIO will find it when it reads its header
/// anew; true for a file opened for reading.
bool CanBeLeft(fitsfile* file);

/// Whether CFITSIO fills up little when it inserts blocks behind the data of the current HDU, or takes some away there.
/// @param blocks  how many it inserts; below 0 for those that it takes away
/// @param own     how many the caller fills itself
bool CanGrow(const fitsfile* file, std::int64_t blocks, std::int64_t own);

/// 0 if CFITSIO has little or nothing to fill up, or a CFITSIO status, with a message on its stack.
int CheckFilling(bool is_little);

/// Brings the checksums of the current HDU up to date before the file is closed, or says on CFITSIO's message stack why
/// that fails. Not where CFITSIO cannot leave the HDU, or would go for more than about two seconds over data that are
/// not there.
void SumUp(fitsfile* file);

/// Closes a file, without making its current HDU whole where that one cannot be left.
void CloseFile(fitsfile* file);

/// While one lives, CFITSIO takes a file for one that is only read, and leaves its HDUs as they are.
class WithoutFilling {
 public:
  explicit WithoutFilling(fitsfile* file) : file_(file), mode_(file->Fptr->writemode) {
    file_->Fptr->writemode = READONLY;
  }
  ~WithoutFilling() { file_->Fptr->writemode = mode_; }
  WithoutFilling(const WithoutFilling&) = delete;
  WithoutFilling& operator=(const WithoutFilling&) = delete;
  WithoutFilling(WithoutFilling&&) = delete;
  WithoutFilling& operator=(WithoutFilling&&) = delete;

 private:
  fitsfile* file_;
  int mode_;
};

}  // namespace quen::common::Fits
