#include "common/fits/src/data_unit.hpp"

#include <algorithm>
#include <limits>

namespace quen::common::Fits {
namespace {

constexpr std::int64_t kMostFilled = 100'000'000;
constexpr std::int64_t kMostSummed = 3'000'000'000;  // bytes; CFITSIO takes a third of a nanosecond for a missing one

std::int64_t EndOfData(const FITSfile& state) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(state.datastart) +
                                   static_cast<std::uint64_t>(state.heapstart) +
                                   static_cast<std::uint64_t>(state.heapsize));
}

/// Whether there is a data unit, and its place is known: that of a table just made is not, before anything is in it.
/// CFITSIO takes one whose heap begins at its start for none.
bool HasData(const FITSfile& state) { return state.datastart >= 0 && state.heapstart != 0; }

/// Those included that are written but not on disk yet. An uncompressed file's, where it is compressed.
std::int64_t FileSize(const FITSfile& state) { return std::max<std::int64_t>(state.filesize, state.logfilesize); }

/// Whether what is missing from the last block is less than a block.
bool HasGoodFill(std::int64_t end) { return end > -kBlock && end <= std::numeric_limits<std::int64_t>::max() - kBlock; }

}  // namespace

bool CanBeLeft(std::int64_t end, std::int64_t size) { return HasGoodFill(end) && end - size <= kMostFilled; }

bool CanBeLeft(const fitsfile* file) {
  const FITSfile& state = *file->Fptr;
  return state.writemode == READONLY || !HasData(state) || CanBeLeft(EndOfData(state), FileSize(state));
}

bool CanBeSummed(const fitsfile* file) {
  const FITSfile& state = *file->Fptr;
  const std::int64_t end = EndOfData(state);
  return !HasData(state) || (CanBeLeft(file) && HasGoodFill(end) && end - FileSize(state) <= kMostSummed);
}

int CheckLeaving(const fitsfile* file, bool and_others) {
  if (and_others && CanBeLeft(file)) return 0;
  fits_write_errmsg("The file lacks more than 100 MB of the data that it declares.");
  return END_OF_FILE;
}

void CloseFile(fitsfile* file) {
  int ignored = 0;
  if (!CanBeLeft(file)) {
    fits_flush_buffer(file, 0, &ignored);  // which it would not, once it takes the file for one that is only read
    file->Fptr->writemode = READONLY;
  }
  ignored = 0;
  fits_close_file(file, &ignored);
}

}  // namespace quen::common::Fits
