#include "common/fits/src/data_unit.hpp"

#include <algorithm>
#include <limits>

#include "common/fits/src/kept_messages.hpp"

namespace quen::common::Fits {
namespace {

constexpr std::int64_t kMostSummed = 5'000'000'000;  // bytes; CFITSIO takes a third of a nanosecond for a missing one

std::int64_t EndOfData(const FITSfile& state) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(state.datastart) +
                                   static_cast<std::uint64_t>(state.heapstart) +
                                   static_cast<std::uint64_t>(state.heapsize));
}

/// Further behind the end of a file CFITSIO has nothing to add to what it says of data that are missing.
constexpr std::int64_t kFarBehind = 1000 * kBlock;

/// Whether there is a data unit, and its place is known: that of a table just made is not, before anything is in it.
/// CFITSIO takes one whose heap begins at its start for none.
bool HasData(const FITSfile& state) { return state.datastart >= 0 && state.heapstart != 0; }

/// Those included that are written but not on disk yet. An uncompressed file's, where it is compressed.
std::int64_t FileSize(const FITSfile& state) { return std::max<std::int64_t>(state.filesize, state.logfilesize); }

/// Bytes that CFITSIO sums up although they are not there. They reach to where the next HDU is to begin, which need not
/// be behind the heap; where nothing is there, it does not begin.
std::int64_t SummedInVain(const FITSfile& state) {
  const bool has_any = state.datastart >= 0 && state.datastart < FileSize(state);
  return has_any ? static_cast<std::int64_t>(state.headstart[state.curhdu + 1]) - FileSize(state) : 0;
}

/// Whether what is missing from the last block is less than a block.
bool HasGoodFill(std::int64_t end) { return end > -kBlock && end <= std::numeric_limits<std::int64_t>::max() - kBlock; }

/// Has CFITSIO read the header of the current HDU anew, as it does before it leaves the HDU or sums it up.
/// @return  whether it could; it comes no further by itself otherwise
bool IsReadAnew(fitsfile* file) {
  int status = 0;
  const KeptMessages kept;
  return fits_set_hdustruc(file, &status) == 0;
}

bool HasFewRowsMissing(const FITSfile& state) {
  if (state.datastart < 0 || state.heapsize <= 0 || state.tableptr == nullptr) return true;
  const auto is_list = [](const tcolumn& column) { return IsList(column.tform); };
  const auto lists = std::count_if(state.tableptr, state.tableptr + state.tfield, is_list);
  return CanBeGoneOver(lists, state.numrows, state.rowlength, FileSize(state));
}

bool CanBeLeftAsKnown(const fitsfile* file) {
  const FITSfile& state = *file->Fptr;
  if (state.writemode == READONLY) return true;
  return (!HasData(state) || CanBeLeft(EndOfData(state), FileSize(state))) && HasFewRowsMissing(state);
}

}  // namespace

bool CanBeLeft(std::int64_t end, std::int64_t size) { return HasGoodFill(end) && end - size <= kMostFilled; }

bool IsList(std::string_view format) { return format.substr(0, 2).find_first_of("PQ") != std::string_view::npos; }

bool CanBeGoneOver(std::int64_t lists, std::int64_t rows, std::int64_t row_length, std::int64_t size) {
  constexpr std::int64_t kMostRows = 200'000'000;  // CFITSIO takes five nanoseconds for a missing one
  return lists == 0 || rows - size / std::max(row_length, std::int64_t{1}) <= kMostRows / lists;
}

bool CanBeLeft(fitsfile* file) { return CanBeLeftAsKnown(file) || !IsReadAnew(file) || CanBeLeftAsKnown(file); }

bool CanGrow(const fitsfile* file, std::int64_t blocks, std::int64_t own) {
  const FITSfile& state = *file->Fptr;
  const std::int64_t end = EndOfData(state);
  const bool lacks_much = end > FileSize(state) + kMostFilled;
  if (blocks >= 0) return blocks == 0 || (!lacks_much && blocks - own <= kMostFilled / kBlock);
  // It puts zeros where blocks were, if the first of them is there.
  return !lacks_much || end + (kBlock - end % kBlock) % kBlock + blocks * kBlock >= FileSize(state);
}

void SumUp(fitsfile* file) {
  FITSfile& state = *file->Fptr;
  if (state.writemode == READONLY) {
    if ((HasData(state) && !HasGoodFill(EndOfData(state))) || !HasFewRowsMissing(state)) return;
    LONGLONG& next = state.headstart[state.curhdu + 1];
    next = std::min<LONGLONG>(next, FileSize(state) + kFarBehind);
  } else if (!CanBeLeft(file) || SummedInVain(state) > kMostSummed) {
    return;
  }
  int ignored = 0;
  fits_write_chksum(file, &ignored);
}

int CheckFilling(bool is_little) {
  if (is_little) return 0;
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
