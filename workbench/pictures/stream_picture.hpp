#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// @file
/// A picture of any stream's frame.

namespace quen::workbench {

/// @throws std::runtime_error  a frame of these axes has more pixels along one than anyone could see
void RequireDrawable(const std::vector<std::uint32_t>& size, const std::string& stream);

/// Draws an image in grey by zscale, row 0 at the bottom, the first plane of a cube; one that has few rows or columns
/// as a matrix in colours. Returns a PNG file.
/// @param size    pixels along 1 to 3 axes
/// @param values  of the pixels
/// @throws std::runtime_error  there is no memory for it
std::string DrawStream(const std::vector<std::uint32_t>& size, const std::vector<double>& values,
                       const std::string& title);

}  // namespace quen::workbench
