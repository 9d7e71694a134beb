#pragma once

#include <fitsio.h>

#include <array>
#include <string>
#include <vector>

namespace quen::common::Fits {

/// CFITSIO's message stack, emptied, and put back as it was when the scope ends.
class KeptMessages {
 public:
  KeptMessages() {
    for (std::array<char, FLEN_ERRMSG> line{}; fits_read_errmsg(line.data()) != 0;) lines_.emplace_back(line.data());
  }
  ~KeptMessages() {
    fits_clear_errmsg();
    for (const std::string& line : lines_) fits_write_errmsg(line.c_str());
  }
  KeptMessages(const KeptMessages&) = delete;
  KeptMessages& operator=(const KeptMessages&) = delete;
  KeptMessages(KeptMessages&&) = delete;
  KeptMessages& operator=(KeptMessages&&) = delete;

 private:
  std::vector<std::string> lines_;
};

}  // namespace quen::common::Fits
