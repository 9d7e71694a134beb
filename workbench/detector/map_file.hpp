#pragma once

#include <functional>
#include <string>
#include <vector>

#include "common/fits/fits.hpp"
#include "detector/detector.hpp"
#include "workbench/fits/input_file.hpp"

/// @file
/// Maps of a detector's pixels: FITS files, an element for each of the 840 × 816 pixels.

namespace quen::workbench {

using KeyWriter = std::function<void(const quen::common::Fits::Handle& file)>;

/// Reads a map: an image of 840 × 816 numbers of any type, be it compressed in tiles; the primary one or, where that
/// has no pixels, the only such one among the extensions.
/// @throws std::runtime_error  the file cannot be read, has other images, or several of this size
std::vector<double> ReadMap(const InputFile& file);

/// Reads a map of what is wrong with pixels: the numbers of PixelState.
/// @throws std::runtime_error  the file cannot be read, is another image, or has another number in it
std::vector<quen::detector::PixelState> ReadPixelStates(const InputFile& file);

/// A FITS file of a map, in doubles.
/// @param what        it is, and its unit: a comment in its header
/// @param write_keys  writes what it was drawn from into its header; nothing if empty
std::string MapFile(const std::vector<double>& map, const std::string& what, const KeyWriter& write_keys = {});
std::string PixelStateFile(const std::vector<quen::detector::PixelState>& states, const KeyWriter& write_keys = {});

}  // namespace quen::workbench
