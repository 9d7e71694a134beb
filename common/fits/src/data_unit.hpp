#pragma once

#include <fitsio.h>

#include <cstdint>

/// @file
/// What CFITSIO does at the end of a data unit, when it sums the unit up and before it leaves it in a file opened for
/// writing: it puts zeros behind the data, up to a whole block, wherever a header says that they end. After a damaged
/// header that may be beyond a buffer, or gigabytes beyond the file, which it fills up.

namespace quen::common::Fits {

inline constexpr std::int64_t kBlock = 2880;  ///< bytes; headers and data units are padded to whole ones

/// Whether CFITSIO can leave an HDU of a file opened for writing: it writes within its buffers, and the file grows by
/// no more than 100 MB.
/// @param end   where in the file the data are to end, as CFITSIO adds it up: wrapped around where sizes are absurd
/// @param size  of the file, bytes
bool CanBeLeft(std::int64_t end, std::int64_t size);

/// The same for the HDU that the file is positioned on; true for a file opened for reading.
bool CanBeLeft(const fitsfile* file);

/// Whether CFITSIO can bring the checksums of the current HDU up to date: it can leave the HDU, and does not go for
/// longer than about a second over data that are not there.
bool CanBeSummed(const fitsfile* file);

/// 0 if the current HDU can be left, and what else is on the way, or a CFITSIO status, with a message on its stack.
int CheckLeaving(const fitsfile* file, bool and_others = true);

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
