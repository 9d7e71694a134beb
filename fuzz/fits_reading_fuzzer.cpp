#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/fits/fits.hpp"
#include "fuzz/input.hpp"

// Any bytes as a FITS file, read as an image and as tables through every reading function.

namespace {

using namespace quen::common::Fits;
using quen::fuzz::Path;
using quen::fuzz::Try;
using quen::fuzz::TryWithLittleMemory;

constexpr std::size_t kElements = 4096;

void ReadImages(const std::string& path, const std::optional<std::string>& extension) {
  const Handle file = FitsFile(path, extension);
  std::vector<double> buffer(kElements);
  Try([&] {
    const ImgParams params = ReadImgParams(file);
    for (const int as : {TBYTE, TSHORT, TDOUBLE}) {
      Try([&] { ReadImgPriv(file, buffer.data(), buffer.size(), params.second, as, params.first); });
      Try([&] { ReadImgSlicePriv(file, buffer.data(), buffer.size(), params.second, as, 0); });
    }
  });
  int axes = 0;
  Try([&] { ReadImgHeaderPriv(file, &axes, TINT, "NAXIS"); });
  std::vector<char> text(FLEN_VALUE);
  Try([&] { ReadImgHeaderPriv(file, text.data(), TSTRING, "OBJECT"); });
}

void ReadTables(const std::string& path, const std::string& extension) {
  const Handle file = FitsFile(path, extension);
  std::vector<double> buffer(kElements);
  for (const auto& params : ReadTableParams(file, std::nullopt).second) {
    const std::string& column = std::get<0>(params);
    for (const int as : {TBYTE, TSHORT, TDOUBLE}) {
      Try([&] { ReadColumnPriv(file, buffer.data(), buffer.size(), as, column); });
    }
    TryWithLittleMemory([&] { ReadColumnOrThrow<std::uint8_t>(file, column); });
    TryWithLittleMemory([&] { ReadColumnOrThrow<std::uint16_t>(file, column); });
    TryWithLittleMemory([&] { ReadColumnOrThrow<double>(file, column); });
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kLargestElement = 64;  // a bit column gives eight elements of eight bytes for a byte
  const std::string path = Path("input.fits");
  quen::fuzz::WriteFile(path, {data, data + size});
  quen::fuzz::Guarded(size, kLargestElement, [&] {
    Try([&] { ReadImages(path, std::nullopt); });
    Try([&] { ReadImages(path, "1"); });
    Try([&] { ReadTables(path, "1"); });
    Try([&] { ReadTables(path, "rois"); });
  });
  return 0;
}
