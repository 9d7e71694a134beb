#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/fits/fits.hpp"

// Any bytes as a FITS file, read as an image and as tables into buffers of fixed size. Each call succeeds or throws one of
// the documented exceptions; any other exception ends the fuzzer.

namespace {

using quen::common::Fits::FitsFile;
using quen::common::Fits::Handle;
using quen::common::Fits::ImgParams;
using quen::common::Fits::ReadColumnPriv;
using quen::common::Fits::ReadImgHeaderPriv;
using quen::common::Fits::ReadImgParams;
using quen::common::Fits::ReadImgPriv;
using quen::common::Fits::ReadImgSlicePriv;
using quen::common::Fits::ReadTableParams;

constexpr std::size_t kElements = 4096;

/// A file of this process's own, in memory where the system offers that.
const std::string& Path() {
  static const std::string path = [] {
    const std::filesystem::path memory = "/dev/shm";
    const auto folder = std::filesystem::exists(memory) ? memory : std::filesystem::temp_directory_path();
    return (folder / ("quen_fuzz_" + std::to_string(getpid()) + ".fits")).string();
  }();
  return path;
}

template <typename Action>
void Try(Action action) {
  try {
    action();
  } catch (const std::invalid_argument&) {
  } catch (const std::out_of_range&) {
  } catch (const std::runtime_error&) {
  }
}

void ReadImages() {
  const Handle file = FitsFile(Path(), std::nullopt);
  std::vector<double> buffer(kElements);
  Try([&] {
    const ImgParams params = ReadImgParams(file);
    Try([&] { ReadImgPriv(file, buffer.data(), buffer.size(), params.second, TDOUBLE, params.first); });
    Try([&] { ReadImgSlicePriv(file, buffer.data(), buffer.size(), params.second, TDOUBLE, 0); });
  });
  int axes = 0;
  Try([&] { ReadImgHeaderPriv(file, &axes, TINT, "NAXIS"); });
}

void ReadTables(const std::string& extension) {
  const Handle file = FitsFile(Path(), extension);
  std::vector<double> buffer(kElements);
  for (const auto& params : ReadTableParams(file, std::nullopt).second) {
    const std::string& column = std::get<0>(params);
    for (const int as : {TBYTE, TSHORT, TDOUBLE}) {
      Try([&] { ReadColumnPriv(file, buffer.data(), buffer.size(), as, column); });
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::ofstream(Path(), std::ios::binary)
      .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  Try([] { ReadImages(); });
  Try([] { ReadTables("rois"); });
  Try([] { ReadTables("1"); });
  fits_clear_errmsg();
  std::filesystem::remove(Path());
  return 0;
}
