#include "common/fits/src/status.hpp"

#include <fitsio.h>

#include <array>

namespace quen::common::Fits {

std::string ReadStatus(int status) {
  if (status == 0) return {};
  std::array<char, 256> line{};
  fits_get_errstatus(status, line.data());
  std::string text = std::string(line.data()) + ", ";
  while (fits_read_errmsg(line.data()) != 0) text += line.data();
  return text;
}

}  // namespace quen::common::Fits
