#pragma once

#include <cstddef>
#include <vector>

#include "workbench/fits/input_file.hpp"

/// @file
/// The spot that a correlation looks for.

namespace quen::workbench {

/// A spot whose centre is on the middle pixel.
struct SpotTemplate {
  std::size_t size = 0;        ///< side, pixels: odd, within quen::centroiders::CorrelationLimits
  std::vector<double> values;  ///< row by row; finite, not all of them 0
};

/// Reads the template in a file, an image of numbers of any type, be it compressed in tiles: the primary one or, where
/// that has no pixels, the only one among the extensions that may be a template by its sides.
/// @throws std::runtime_error  the file cannot be read, or its image is no template
SpotTemplate ReadTemplate(const InputFile& file);

}  // namespace quen::workbench
