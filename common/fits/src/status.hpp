#pragma once

#include <fitsio.h>

#include <array>
#include <string>

// The part of the layer that is not exported; each of its files has it to itself.
namespace quen::common {
namespace {  // NOLINT(cert-dcl59-cpp,google-build-namespaces): no name of it is to be seen outside.

/// The text of a CFITSIO status, empty for 0: its description, ", ", and every message queued in the process, oldest
/// first and without separators. Messages of earlier failures that nobody asked about are among them. Leaves the queue
/// empty.
std::string ReadStatus(int status) {
  if (status == 0) return {};
  std::array<char, 256> line{};
  fits_get_errstatus(status, line.data());
  std::string text = std::string(line.data()) + ", ";
  while (fits_read_errmsg(line.data()) != 0) text += line.data();
  return text;
}

}  // namespace
}  // namespace quen::common
