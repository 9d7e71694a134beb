#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "workbench/check/finding.hpp"
#include "workbench/check/src/lattice.hpp"
#include "workbench/check/src/slope_space.hpp"
#include "workbench/sensor/matrices.hpp"

namespace quen::workbench {

/// Sub-apertures whose slopes do not fit those of their neighbours, by their numbers in the list of the used ones.
struct OddSubapertures {
  std::vector<std::pair<std::size_t, std::size_t>> exchanged = {};
  std::vector<std::pair<std::size_t, double>> scaled = {};  ///< and by which factor
  std::vector<std::size_t> unlike = {};                     ///< neither
  Matrix sound = {};  ///< M2S, with what the neighbours let expect in the place of their slopes
};

/// Finds those that stand out: in good calibrations none does, whatever the noise. In a matrix in another layout, all
/// sub-apertures are unlike their neighbours, and none stands out.
/// @param m2s   in the right layout
/// @param used  indices of the used sub-apertures
/// @param gradients  of smooth surfaces, at these
OddSubapertures FindOddSubapertures(const Matrix& m2s, const Lattice& lattice, const std::vector<std::size_t>& used,
                                    const SlopeSpace& gradients);

/// What is to be told of single sub-apertures: the odd ones, and those that no mode moves.
/// @param m2s   in the right layout
/// @param used  indices of the used sub-apertures
Findings CheckSubapertures(const Matrix& m2s, const OddSubapertures& odd, const std::vector<std::size_t>& used);

}  // namespace quen::workbench
