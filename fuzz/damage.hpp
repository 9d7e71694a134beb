#pragma once

#include <cstddef>

#include "fuzz/input.hpp"

/// @file
/// FITS files with one thing wrong: every card of every header with each of many values, taken out, doubled or without
/// its end; and the file cut at every card and several times in each block of data.

namespace quen::fuzz {

/// How many files Damaged makes of this one.
std::size_t CountDamages(const Bytes& file);

/// The file with damage number `which` < CountDamages(file) done to it.
Bytes Damaged(const Bytes& file, std::size_t which);

}  // namespace quen::fuzz
