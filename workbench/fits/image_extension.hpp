#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "workbench/fits/long_table.hpp"
#include "workbench/fits/spool.hpp"

namespace quen::workbench {

/// An image that stands behind other units of a file.
struct ImageExtension {
  std::string name;               ///< EXTNAME, no quotes in it
  int bitpix = 8;                 ///< BITPIX
  std::vector<std::size_t> axes;  ///< NAXIS1, NAXIS2, …
  std::string unit = {};          ///< BUNIT; none if empty
  bool is_unsigned = false;       ///< 16-bit pixels are those of the file and 32768
};

/// Hands on an image with its checksums, in a few megabytes of memory.
/// @param data      as FITS has it, as many bytes as the axes tell
/// @param position  of the unit in the file
/// @return          of what follows it
std::size_t HandOnImage(const ImageExtension& image, const Spool& data, const ByteSink& sink, std::size_t position);

}  // namespace quen::workbench
