#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "basesim/base_simulator.hpp"
#include "fuzz/input.hpp"
#include "testing/calibration.hpp"

// Any bytes as each of the three calibration files in turn, loaded with the two others as they should be.
//
// An input is a FITS file in which a block of 2880 bytes that starts with "BLOCKS  =" stands for as many blocks of
// zeros: a matrix is half a megabyte of data, of which no byte matters here.

namespace {

using quen::fuzz::Bytes;
using quen::fuzz::Path;

constexpr std::size_t kBlock = 2880;
constexpr std::size_t kMostZeros = 400;  // blocks, in all
constexpr std::string_view kZeros = "BLOCKS  =";

Bytes Expanded(std::string_view input) {
  Bytes file;
  std::size_t room = kMostZeros;
  for (; !input.empty(); input.remove_prefix(std::min(kBlock, input.size()))) {
    const std::string_view block = input.substr(0, kBlock);
    if (block.starts_with(kZeros)) {
      const std::string number(block.substr(kZeros.size(), 20));
      const auto asked = static_cast<std::size_t>(std::max(0L, std::strtol(number.c_str(), nullptr, 10)));
      const std::size_t blocks = std::min(asked, room);
      file.insert(file.end(), blocks * kBlock, 0);
      room -= blocks;
    } else {
      file.insert(file.end(), block.begin(), block.end());
    }
  }
  return file;
}

/// A good calibration in one folder, and before it in the search an empty one for the file of the input.
void PrepareOnce() {
  static const bool prepared = [] {
    quen::testing::Calibration().Write(Path("good"));
    std::filesystem::create_directory(Path("data"));
    setenv("CFGPATH", (Path("") + ":" + Path("good")).c_str(), 1);
    setenv("INTROOT", "", 1);
    return true;
  }();
  static_cast<void>(prepared);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kLargestElement = 64;  // a bit column gives eight elements of eight bytes for a byte
  PrepareOnce();
  const Bytes input(data, data + size);
  const Bytes file = Expanded(quen::fuzz::Text(input));
  for (const char* const name : {"data/M2S.fits", "data/CM.fits", "data/shs_rois.fits"}) {
    quen::fuzz::WriteFile(Path(name), file);
    quen::fuzz::Guarded(file.size(), kLargestElement,
                        [] { quen::fuzz::TryWithLittleMemory([] { const quen::basesim::BaseSimulator simulator; }); });
    std::filesystem::remove(Path(name));
  }
  return 0;
}
