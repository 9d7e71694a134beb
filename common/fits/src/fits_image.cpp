#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string_view>

#include "common/fits/fits.hpp"
#include "common/fits/src/checks.hpp"
#include "common/fits/src/data_unit.hpp"
#include "common/fits/src/header_check.hpp"
#include "common/fits/src/kept_messages.hpp"
#include "common/fits/src/status.hpp"

namespace quen::common::Fits {
namespace {

constexpr int kMostAxes = sizeof(FITSfile::imgnaxis) / sizeof(LONGLONG);

void CheckIsImage(const Handle& handle) {
  // Spelled as hosts know it: the text is the interface.
  if (handle->hdu_type != IMAGE_HDU) throw std::runtime_error("Fits: Handle opened for an exttension HDU");
}

void CheckBitpix(int expected, int actual) {
  if (actual != expected) {
    // Spelled as hosts know it: the text is the interface.
    throw std::invalid_argument("Fits: File has wrong image type, expected: " + std::to_string(expected) +
                                " , acctual: " + std::to_string(actual));
  }
}

void CheckDims(const std::vector<std::size_t>& expected, const std::vector<std::size_t>& actual) {
  // Spelled as hosts know it: the text is the interface. Dimensions are counted from 0.
  if (expected.size() != actual.size()) {
    throw std::runtime_error("Fits: Image dimansions do not match, expected: " + std::to_string(expected.size()) +
                             " dimensions, actual: " + std::to_string(actual.size()) + " dimensions");
  }
  for (std::size_t i = 0; i < expected.size(); ++i) {
    if (expected[i] != actual[i]) {
      throw std::runtime_error("Fits: Image size does not match for the " + std::to_string(i) +
                               "th dimension, expected: " + std::to_string(expected[i]) +
                               ", acctual: " + std::to_string(actual[i]));
    }
  }
}

/// Bytes of a pixel that CFITSIO reads from a compressed image.
std::uint64_t PixelSize(int datatype) {
  if (datatype == TBYTE || datatype == TSBYTE) return 1;
  if (datatype == TSHORT || datatype == TUSHORT) return 2;
  return datatype == TINT || datatype == TUINT || datatype == TFLOAT ? 4 : 8;
}

/// Whether CFITSIO takes less room for a tile of a compressed image than it puts there: the size that the header
/// declares wraps around.
bool OverrunsTile(fitsfile* file, int datatype) {
  constexpr double kRounding = 1e-9;
  int status = 0;
  if (fits_is_compressed_image(file, &status) == 0) return false;
  const FITSfile& state = *file->Fptr;
  const auto room = static_cast<double>(static_cast<std::uint64_t>(state.maxtilelen) * PixelSize(datatype));
  auto used = static_cast<double>(PixelSize(datatype));
  for (int i = 0; i < state.zndim; ++i) used *= static_cast<double>(std::min(state.tilesize[i], state.znaxis[i]));
  return room < used * (1 - kRounding);
}

/// 0, or a CFITSIO status if the image cannot be read into any memory.
int CheckTiles(fitsfile* file, int datatype) {
  if (!OverrunsTile(file, datatype)) return 0;
  fits_write_errmsg("ZTILE in the header declares tiles that no memory holds.");
  return MEMORY_ALLOCATION;
}

/// Blocks of an image, by CFITSIO's arithmetic: "random groups" keep their parameters and their number.
std::int64_t Blocks(std::uint64_t elements, int bitpix, long parameters, long groups) {
  constexpr int kBitsPerByte = 8;
  const auto size = (elements + static_cast<std::uint64_t>(parameters)) * static_cast<std::uint64_t>(groups) *
                    static_cast<std::uint64_t>(std::abs(bitpix) / kBitsPerByte);
  return static_cast<std::int64_t>(size + kBlock - 1) / kBlock;
}

/// Whether CFITSIO fills up little when it makes room for an image of that many elements in place of the current one.
bool CanBeResized(fitsfile* file, std::size_t count, int bitpix) {
  std::array<LONGLONG, kMostAxes> axes{};
  int old_bitpix = 0;
  int axis_count = 0;
  long parameters = 0;
  long groups = 1;
  int status = 0;
  const KeptMessages kept;
  fits_read_imghdrll(file, kMostAxes, nullptr, &old_bitpix, &axis_count, axes.data(), &parameters, &groups, nullptr,
                     &status);
  if (status != 0) return true;  // CFITSIO goes no further then, either
  std::uint64_t elements = axis_count == 0 ? 0 : 1;
  for (int i = 0; i < axis_count; ++i) elements *= static_cast<std::uint64_t>(axes.at(static_cast<std::size_t>(i)));
  const std::int64_t own = Blocks(count, bitpix, 0, 1);
  const std::int64_t inserted =
      Blocks(count, bitpix, parameters, groups) - Blocks(elements, old_bitpix, parameters, groups);
  return CanGrow(file, inserted, own);
}

}  // namespace

ImgParams ReadImgParams(const Handle& handle) {
  CheckIsImage(handle);
  int status = 0;
  int axis_count = 0;
  fits_get_img_dim(handle->file, &axis_count, &status);
  if (status != 0) throw std::runtime_error("Fits: Error getting the number of axes: " + ReadStatus(status));

  std::vector<long> lengths(static_cast<std::size_t>(axis_count), 0);
  int bitpix = 0;
  fits_get_img_param(handle->file, axis_count, &bitpix, &axis_count, lengths.data(), &status);
  if (status != 0) throw std::runtime_error("Fits: Error getting img params: " + ReadStatus(status));
  return {std::vector<std::size_t>(lengths.begin(), lengths.end()), bitpix};
}

void ReadImgPriv(const Handle& handle, void* buffer, std::size_t count, int bitpix, int datatype,
                 const std::optional<std::vector<std::size_t>>& dims) {
  const auto [lengths, file_bitpix] = ReadImgParams(handle);
  const std::size_t needed = ElementCount(lengths);
  CheckBitpix(bitpix, file_bitpix);
  CheckBuffer(needed, count);
  if (dims) CheckDims(*dims, lengths);

  int status = needed == 0 ? 0 : CheckTiles(handle->file, datatype);
  fits_read_img(handle->file, datatype, 1, static_cast<LONGLONG>(needed), nullptr, buffer, nullptr, &status);
  if (status != 0) throw std::runtime_error("Fits: Error reading image: " + ReadStatus(status));
}

void ReadImgSlicePriv(const Handle& handle, void* buffer, std::size_t count, int bitpix, int datatype,
                      std::size_t slice) {
  const auto [lengths, file_bitpix] = ReadImgParams(handle);
  if (lengths.size() != 3) throw std::invalid_argument("Fits: Expected a 3D image");
  CheckBitpix(bitpix, file_bitpix);
  if (slice >= lengths[2]) throw std::out_of_range("Fits: Slice index is outside the third dimension");
  CheckBuffer(lengths[0] * lengths[1], count);

  const auto plane = static_cast<long>(slice) + 1;
  std::array<long, 3> first = {1, 1, plane};
  std::array<long, 3> last = {static_cast<long>(lengths[0]), static_cast<long>(lengths[1]), plane};
  std::array<long, 3> step = {1, 1, 1};
  int status = CheckTiles(handle->file, datatype);
  fits_read_subset(handle->file, datatype, first.data(), last.data(), step.data(), nullptr, buffer, nullptr, &status);
  if (status != 0) throw std::runtime_error("Fits: Error reading image slice: " + ReadStatus(status));
}

void WriteImgPriv(const Handle& handle, const void* buffer, std::size_t count, int bitpix, int datatype,
                  const std::vector<std::size_t>& dims) {
  const std::size_t size = ElementCount(dims);
  if (count != size) {
    throw std::invalid_argument("Fits: Provided image buffer size: " + std::to_string(count) +
                                " does not match size from provided dimensions: " + std::to_string(size));
  }
  CheckWritable(handle);
  if (!handle->extension.empty()) throw std::runtime_error("Fits: Handle opened for extension table HDU");
  if (handle->hdu_type == -1) handle->hdu_type = IMAGE_HDU;

  std::vector<long> lengths(dims.begin(), dims.end());
  const bool is_there = handle->file->Fptr->curhdu == 0;
  int status = is_there ? 0 : CheckFilling(CanBeLeft(handle->file));
  int hdu_type = 0;
  fits_movabs_hdu(handle->file, 1, &hdu_type, &status);
  if (status == 0) status = CheckFilling(CanBeResized(handle->file, count, bitpix));
  fits_resize_img(handle->file, bitpix, static_cast<int>(lengths.size()), lengths.data(), &status);
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): CFITSIO reads the buffer only.
  fits_write_img(handle->file, datatype, 1, static_cast<LONGLONG>(count), const_cast<void*>(buffer), &status);
  if (status != 0) throw std::runtime_error("Fits: Error writing image: " + ReadStatus(status));
}

namespace {

/// Whether CFITSIO would overrun a buffer if it read a keyword as a whole number.
bool Overruns(fitsfile* file, int datatype, const std::string& key) {
  constexpr std::array kNoWholeNumbers = {TSTRING, TLOGICAL, TFLOAT, TDOUBLE, TCOMPLEX, TDBLCOMPLEX};
  if (std::ranges::find(kNoWholeNumbers, datatype) != kNoWholeNumbers.end()) return false;
  const KeptMessages kept;
  int count = 0;
  int position = 0;
  int status = 0;
  std::array<char, FLEN_VALUE> value{};
  fits_get_hdrpos(file, &count, &position, &status);
  fits_read_keyword(file, key.c_str(), value.data(), nullptr, &status);
  int ignored = 0;
  ffmaky(file, position, &ignored);  // where the next search begins
  return status == 0 && OverrunsComplaint(value.data(), datatype == TULONG || datatype == TULONGLONG);
}

}  // namespace

void ReadImgHeaderPriv(const Handle& handle, void* value, int datatype, const std::string& key) {
  CheckIsImage(handle);
  std::array<char, 81> comment{};
  int status = Overruns(handle->file, datatype, key) ? BAD_INTKEY : 0;
  fits_read_key(handle->file, datatype, key.c_str(), value, comment.data(), &status);
  if (status != 0) throw std::runtime_error("Fits: Error getting the header key: " + key);
}

}  // namespace quen::common::Fits
