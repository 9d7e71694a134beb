#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/fits/fits.hpp"
#include "fuzz/input.hpp"

// A file written by a few calls of the writing functions, their names, formats, numbers and shapes taken from the
// input.
//
// The first byte says how many bytes describe the calls: flags, the extension's name, the number of calls, and what
// each takes. What follows them is the file that lies there before; nothing: there is none.

namespace {

using namespace quen::common::Fits;
using quen::fuzz::Bytes;
using quen::fuzz::Path;
using quen::fuzz::Try;

constexpr std::array<int, 3> kDatatypes = {TBYTE, TSHORT, TDOUBLE};
constexpr std::array<int, 4> kBitpix = {SHORT_IMG, DOUBLE_IMG, BYTE_IMG, 7};

/// Takes an input apart from its front. Where nothing is left, numbers are 0 and texts empty.
class Reader {
 public:
  Reader(const std::uint8_t* data, std::size_t size) : next_(data), end_(data + size) {}

  std::uint8_t Byte() { return next_ == end_ ? std::uint8_t{0} : *next_++; }

  /// Up to a line feed.
  std::string Text() {
    const auto* const stop = std::find(next_, end_, '\n');
    std::string text(next_, stop);
    next_ = stop == end_ ? end_ : stop + 1;
    return text;
  }

 private:
  const std::uint8_t* next_;
  const std::uint8_t* end_;
};

void CallTable(Reader& in, const Handle& file) {
  std::vector<std::pair<std::string, std::string>> columns(in.Byte() % 70);
  for (auto& [name, format] : columns) {
    name = in.Text();
    format = in.Text();
  }
  Try([&] { WriteTable(file, columns); });
}

void CallColumn(Reader& in, const Handle& file) {
  const std::vector<double> values(in.Byte(), 1.5);
  const int datatype = kDatatypes[in.Byte() % kDatatypes.size()];
  const int first_row = in.Byte() - 3;
  if (in.Byte() % 2 == 0) {
    const int column = in.Byte() - 3;
    Try([&] { WriteColumnPriv(file, values.data(), values.size(), datatype, column, first_row); });
  } else {
    const std::string column = in.Text();
    Try([&] { WriteColumnPriv(file, values.data(), values.size(), datatype, column, first_row); });
  }
}

void CallImage(Reader& in, const Handle& file) {
  std::vector<std::size_t> dims(in.Byte() % 5);
  std::size_t count = 1;
  for (std::size_t& length : dims) {
    length = in.Byte() % 16;
    count *= length;
  }
  const std::vector<double> values(count, 2.5);
  const int bitpix = kBitpix[in.Byte() % kBitpix.size()];
  const int datatype = kDatatypes[in.Byte() % kDatatypes.size()];
  Try([&] { WriteImgPriv(file, values.data(), values.size(), bitpix, datatype, dims); });
}

void Play(Reader calls, const std::string& path) {
  const std::uint8_t flags = calls.Byte();
  std::optional<std::string> extension = calls.Text();
  if ((flags & 2U) != 0) extension.reset();
  const Handle file = FitsFileWrite(path, (flags & 1U) != 0, extension);
  for (int left = calls.Byte() % 8; left > 0; --left) {
    switch (calls.Byte() % 3) {
      case 0:
        CallTable(calls, file);
        break;
      case 1:
        CallColumn(calls, file);
        break;
      default:
        CallImage(calls, file);
        break;
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kPixelsPerByte = 4096;  // an image of a few bytes' description
  if (size == 0) return 0;
  const std::size_t described = std::min<std::size_t>(data[0], size - 1);
  const Bytes present(data + 1 + described, data + size);
  const std::string path = Path("output.fits");
  std::filesystem::remove(path);
  if (!present.empty()) quen::fuzz::WriteFile(path, present);
  quen::fuzz::Guarded(size, kPixelsPerByte, [&] {
    Try([&] { Play({data + 1, described}, path); });
    Try([&] { FitsFile(path, std::nullopt); });
  });
  return 0;
}
