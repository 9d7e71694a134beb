#include "workbench/fits/content.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string_view>

#include "workbench/fits/numbers.hpp"
#include "workbench/fits/src/cfitsio_status.hpp"

namespace quen::workbench {
namespace {

using quen::common::Fits::Handle;

/// Whether a message of the library has CFITSIO's words for a status in it.
bool Tells(const std::exception& error, int status) {
  std::array<char, FLEN_STATUS> text{};
  fits_get_errstatus(status, text.data());
  return std::string_view(error.what()).find(text.data()) != std::string_view::npos;
}

/// Whether the library has not opened a file for want of descriptors or memory, or because its disk fails.
bool IsOfTheSystem(const std::exception& error) {
  return IsFailureToOpen(error) || Tells(error, MEMORY_ALLOCATION) || Tells(error, READ_ERROR);
}

/// What is said where the library cannot open a file: the reason may be the system, which it tells; else CFITSIO does
/// not understand a header, and has pages to say of it.
[[noreturn]] void RefuseToOpen(const InputFile& file, const std::runtime_error& error) {
  fits_clear_errmsg();
  if (IsOfTheSystem(error)) throw std::runtime_error(error);
  throw std::runtime_error(file.Name() + ": a header in it cannot be understood; the file may be damaged");
}

/// Bytes of an image's data, be they more than any number of CFITSIO's.
double ImageSize(const Handle& handle) {
  constexpr double kBitsPerByte = 8.0;
  const auto [axes, bitpix] = quen::common::Fits::ReadImgParams(handle);
  double size = axes.empty() ? 0.0 : std::abs(bitpix) / kBitsPerByte;
  for (const std::size_t axis : axes) size *= static_cast<double>(axis);
  return size;
}

/// @throws std::runtime_error  what the header declares is not in the file
void RequireData(const Handle& handle, const InputFile& file) {
  constexpr LONGLONG kBlock = 2880;
  const auto size = static_cast<LONGLONG>(file.Size());
  LONGLONG end = 0;
  LONGLONG rows = 0;
  int status = 0;
  fits_get_hduaddrll(handle->file, nullptr, nullptr, &end, &status);
  if (handle->hdu_type != IMAGE_HDU) fits_get_num_rowsll(handle->file, &rows, &status);
  fits_clear_errmsg();
  RequireSuccess(status, file.Name() + ": its header cannot be read");
  // The last block may be cut, which its reading tells. Rows may be declared to be empty, any number of them.
  const bool is_image = handle->hdu_type == IMAGE_HDU && fits_is_compressed_image(handle->file, &status) == 0;
  const bool has_pixels = !is_image || ImageSize(handle) <= static_cast<double>(size);
  if (has_pixels && end - kBlock < size && rows <= size) return;
  throw std::runtime_error(
      fmt::format("{}: expected {:.0f} bytes, as its header declares, found {}; the file may be cut short", file.Name(),
                  std::max(is_image ? ImageSize(handle) : 0.0, static_cast<double>(end)), size));
}

/// Whether two names are the same, be they in capitals or not.
bool IsSame(std::string_view a, std::string_view b) {
  return std::ranges::equal(
      a, b, [](unsigned char one, unsigned char other) { return std::tolower(one) == std::tolower(other); });
}

/// Whether a card gives an HDU this name, be it in capitals or not.
bool IsName(std::string_view card, std::string_view name) {
  constexpr std::string_view kQuote = "= '";
  constexpr std::size_t kKeyword = 8;
  if (!card.starts_with("EXTNAME ") && !card.starts_with("HDUNAME ")) return false;
  if (card.substr(kKeyword, kQuote.size()) != kQuote) return false;
  std::string_view value = card.substr(kKeyword + kQuote.size());
  value = value.substr(0, value.find('\''));
  value = value.substr(0, value.find_last_not_of(' ') + 1);
  return IsSame(value, name);
}

/// Whether a card anywhere in the file gives an HDU this name.
bool Names(const InputFile& file, std::string_view name) {
  constexpr std::size_t kCard = 80;
  constexpr std::size_t kPiece = kCard << 14U;
  for (std::uint64_t position = 0; position < file.Size(); position += kPiece) {
    const std::string piece = file.Piece(position, kPiece);
    for (std::size_t at = 0; at < piece.size(); at += kCard) {
      if (IsName(std::string_view(piece).substr(at, kCard), name)) return true;
    }
  }
  return false;
}

Handle OpenedByLibrary(const InputFile& file, const std::optional<std::string>& extension) {
  try {
    return quen::common::Fits::FitsFile(file.Path(), extension);
  } catch (const std::runtime_error& error) {
    if (extension && !IsOfTheSystem(error) && !Names(file, *extension)) {
      fits_clear_errmsg();
      throw std::runtime_error(file.Name() + ": expected a table \"" + *extension + "\", found none");
    }
    RefuseToOpen(file, error);
  }
}

/// Goes to an extension, counted from 1.
/// @return  false if there is none
bool MoveTo(const InputFile& file, const Handle& handle, int number) {
  int status = 0;
  fits_clear_errmsg();
  fits_movabs_hdu(handle->file, number + 1, nullptr, &status);
  if (status == END_OF_FILE || status == BAD_HDU_NUM) {
    fits_clear_errmsg();
    return false;
  }
  fits_get_hdu_type(handle->file, &handle->hdu_type, &status);
  RequireSuccess(status, fmt::format("{}: its extension {} cannot be read", file.Name(), number));
  RequireData(handle, file);
  return true;
}

std::string SizeInWords(const Axes& axes) {
  return axes.size() == 2 ? fmt::format("{} x {}", axes[0], axes[1]) : fmt::format("an image of {} axes", axes.size());
}

/// The first of many, with how many more there are in place of the others.
std::string FirstOf(std::vector<std::string> found) {
  constexpr std::size_t kListed = 8;
  if (found.size() > kListed) found[kListed] = fmt::format("{} more", found.size() - kListed);
  found.resize(std::min(found.size(), kListed + 1));
  return found.empty() ? "none" : fmt::format("{}", fmt::join(found, ", "));
}

Axes AxesOfImage(const InputFile& file, const Handle& image) {
  return Reading(file, [&] { return quen::common::Fits::ReadImgParams(image).first; });
}

/// Goes to the only extension that is wanted.
void MoveToOnlyImage(const InputFile& file, const Handle& handle, const std::string& expected,
                     const std::function<bool(const Axes& axes)>& is_wanted) {
  std::vector<int> wanted;
  std::vector<std::string> found;
  for (int number = 1; MoveTo(file, handle, number); ++number) {
    const bool is_image = handle->hdu_type == IMAGE_HDU;
    const Axes axes = is_image ? AxesOfImage(file, handle) : Axes();
    if (is_image && is_wanted(axes)) wanted.push_back(number);
    found.push_back(fmt::format("{} in extension {}", is_image ? SizeInWords(axes) : "a table", number));
  }
  if (wanted.size() == 1) {
    MoveTo(file, handle, wanted.front());
    return;
  }
  throw std::runtime_error(fmt::format("{}: expected {}{}, found {}", file.Name(),
                                       wanted.empty() ? "" : "only one image that is ", expected,
                                       FirstOf(std::move(found))));
}

/// Goes to the first extension of a name, be it in capitals or not. The name is taken as it is: to CFITSIO itself
/// brackets and colons in it would have a meaning.
void MoveToName(const InputFile& file, const Handle& handle, const std::string& name) {
  std::vector<std::string> names;
  for (int number = 1; MoveTo(file, handle, number); ++number) {
    const std::string found = TextKey(file, handle, "EXTNAME");
    if (IsSame(found, name)) return;
    names.push_back(found.empty() ? std::to_string(number) + " without a name" : found);
  }
  throw std::runtime_error(
      fmt::format("{}: expected an extension named {}, found {}", file.Name(), name, FirstOf(std::move(names))));
}

void MoveToNumber(const InputFile& file, const Handle& handle, const std::string& digits) {
  constexpr long kTooMany = std::numeric_limits<int>::max();
  const long number = ParseWhole(digits).value_or(kTooMany);
  if (number == 0) return;  // the primary image
  if (number < kTooMany && MoveTo(file, handle, static_cast<int>(number))) return;
  int count = 0;
  int status = 0;
  fits_get_num_hdus(handle->file, &count, &status);
  fits_clear_errmsg();
  throw std::runtime_error(
      fmt::format("{}: expected an extension of the number {}, found {} of them", file.Name(), digits, count - 1));
}

/// Whether an image has no pixels, and something follows it.
bool IsEmptyBeforeOthers(const InputFile& file, const Handle& image) {
  LONGLONG end = 0;
  int status = 0;
  fits_get_hduaddrll(image->file, nullptr, nullptr, &end, &status);
  return end < static_cast<LONGLONG>(file.Size()) && AxesOfImage(file, image).empty();
}

/// Whether the header that the handle stands on has a keyword, whatever its value is.
bool HasCard(const Handle& handle, const char* key) {
  std::array<char, FLEN_CARD> card{};
  int status = 0;
  fits_read_card(handle->file, key, card.data(), &status);
  fits_clear_errmsg();
  return status == 0;
}

/// Gives NaN to the elements that have no value: in an image of whole numbers they are what its header calls BLANK, in
/// a compressed one what its tiles say. Reading without asking for them has taken them for numbers.
void MarkBlanks(const Handle& image, std::optional<std::size_t> plane, int bitpix, std::vector<double>& elements) {
  int status = 0;
  const bool is_compressed = fits_is_compressed_image(image->file, &status) != 0;
  if (elements.empty() || (!is_compressed && (bitpix < 0 || !HasCard(image, "BLANK")))) return;
  std::array<long, 3> first = {1, 1, static_cast<long>(plane.value_or(0)) + 1};
  std::vector<double> values(elements.size());
  std::vector<char> is_blank(elements.size());
  int any = 0;
  fits_read_pixnull(image->file, TDOUBLE, first.data(), static_cast<LONGLONG>(values.size()), values.data(),
                    is_blank.data(), &any, &status);
  RequireSuccess(status, "no values");
  for (std::size_t k = 0; k < elements.size(); ++k) {
    if (is_blank[k] != 0) elements[k] = std::numeric_limits<double>::quiet_NaN();
  }
}

/// Whether a keyword is there and has a value.
/// @throws std::runtime_error  that cannot be told
bool IsThere(const InputFile& file, const char* key, int status) {
  const bool is_missing = status == KEY_NO_EXIST || status == VALUE_UNDEFINED;
  if (is_missing) fits_clear_errmsg();
  if (!is_missing) RequireSuccess(status, fmt::format("{}: its keyword {} cannot be read", file.Name(), key));
  return !is_missing;
}

}  // namespace

void RequireFits(const InputFile& file) {
  if (!IsFits(file)) throw std::runtime_error(file.Name() + ": expected a FITS file, found something else");
}

bool IsFits(const InputFile& file) {
  constexpr std::string_view kStart = "SIMPLE  =";
  return file.Beginning(kStart.size()) == kStart;
}

Handle OpenFits(const InputFile& file, const std::optional<std::string>& extension) {
  RequireFits(file);
  return Reading(file, [&] {
    fits_clear_errmsg();
    Handle handle = OpenedByLibrary(file, extension);
    RequireData(handle, file);
    return handle;
  });
}

void RequireWhole(const InputFile& file) {
  const Handle handle = OpenFits(file, std::nullopt);
  for (int number = 1; MoveTo(file, handle, number);) ++number;
  LONGLONG end = 0;
  int status = 0;
  fits_get_hduaddrll(handle->file, nullptr, nullptr, &end, &status);
  if (status == 0 && end == static_cast<LONGLONG>(file.Size())) return;
  throw std::runtime_error(
      fmt::format("{}: expected {} bytes, as its headers declare, found {}; the file may be cut short", file.Name(),
                  end, file.Size()));
}

Handle OpenImage(const InputFile& file, const std::string& extension) {
  Handle image = OpenFits(file, std::nullopt);
  if (extension.empty()) {
    if (IsEmptyBeforeOthers(file, image)) MoveToNumber(file, image, "1");
  } else if (extension.find_first_not_of("0123456789") == std::string::npos) {
    MoveToNumber(file, image, extension);
  } else {
    MoveToName(file, image, extension);
  }
  if (image->hdu_type == IMAGE_HDU) return image;
  throw std::runtime_error(file.Name() + ": expected an image, found a table; name the extension of the image");
}

Handle OpenOnlyImage(const InputFile& file, const std::string& expected,
                     const std::function<bool(const Axes& axes)>& is_wanted) {
  Handle image = OpenFits(file, std::nullopt);
  if (IsEmptyBeforeOthers(file, image)) {
    MoveToOnlyImage(file, image, expected, is_wanted);
    return image;
  }
  const Axes axes = AxesOfImage(file, image);
  if (is_wanted(axes)) return image;
  throw std::runtime_error(fmt::format("{}: expected {}, found {}", file.Name(), expected, SizeInWords(axes)));
}

void ReadElements(const InputFile& file, const Handle& image, std::optional<std::size_t> plane,
                  std::vector<double>& elements) {
  try {
    const int bitpix = quen::common::Fits::ReadImgParams(image).second;
    if (plane) {
      quen::common::Fits::ReadImgSlicePriv(image, elements.data(), elements.size(), bitpix, TDOUBLE, *plane);
    } else {
      quen::common::Fits::ReadImgPriv(image, elements.data(), elements.size(), bitpix, TDOUBLE, std::nullopt);
    }
    MarkBlanks(image, plane, bitpix, elements);
  } catch (const std::runtime_error&) {
    fits_clear_errmsg();
    throw std::runtime_error(file.Name() + ": its pixels cannot be read; the file may be cut short");
  }
}

bool IsFailureToOpen(const std::exception& error) { return Tells(error, FILE_NOT_OPENED); }

bool HasTable(const InputFile& file, const char* name) {
  return Reading(file, [&] {
    try {
      return quen::common::Fits::FitsFile(file.Path(), name)->hdu_type == BINARY_TBL;
    } catch (const std::runtime_error& error) {
      fits_clear_errmsg();
      if (Names(file, name)) RefuseToOpen(file, error);  // CFITSIO says so of a table that it cannot read, too
      return false;
    }
  });
}

void RequireTable(const InputFile& file, const char* name) {
  RequireFits(file);
  if (!HasTable(file, name)) {
    throw std::runtime_error(file.Name() + ": expected a table \"" + name + "\", found none");
  }
}

double NumberKey(const InputFile& file, const Handle& handle, const char* key, double otherwise) {
  double value = otherwise;
  int status = 0;
  fits_read_key(handle->file, TDOUBLE, key, &value, nullptr, &status);
  return IsThere(file, key, status) ? value : otherwise;
}

std::string TextKey(const InputFile& file, const Handle& handle, const char* key) {
  std::array<char, FLEN_VALUE> value{};
  int status = 0;
  fits_read_key(handle->file, TSTRING, key, value.data(), nullptr, &status);
  return IsThere(file, key, status) ? value.data() : "";
}

}  // namespace quen::workbench
