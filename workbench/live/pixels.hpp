#pragma once

#include <cstddef>
#include <cstdint>
#include <gsl/span>
#include <string>
#include <vector>

#include "stream/layout.hpp"

/// @file
/// The pixels of a stream, which may be of any type.

namespace quen::workbench {

/// What numpy calls the type: "uint16", "float64", "complex128".
std::string NameOf(stream::PixelType type);

/// "840 x 816, int16".
std::string InWords(const std::vector<std::uint32_t>& size, stream::PixelType type);

/// The pixels as numbers; of complex ones the magnitudes.
std::vector<double> ValuesOf(stream::PixelType type, gsl::span<const std::byte> pixels);

}  // namespace quen::workbench
