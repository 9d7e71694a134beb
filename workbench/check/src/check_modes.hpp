#pragma once

#include <cstddef>
#include <vector>

#include "workbench/check/finding.hpp"
#include "workbench/check/src/lattice.hpp"
#include "workbench/check/src/slope_space.hpp"

namespace quen::workbench {

/// The share of each mode's mean square that is noise, from what differs between neighbouring sub-apertures: the
/// highest spatial frequencies, at which smooth slopes have next to nothing. About 1 for slopes without order, 0 for
/// zeros.
/// @param m2s   in the right layout
/// @param used  indices of the used sub-apertures
Eigen::VectorXd NoiseShares(const Matrix& m2s, const Lattice& lattice, const std::vector<std::size_t>& used);

/// Single modes of a matrix in the right layout: without slopes, without order, there twice, or far noisier than the
/// others; and modes that are no gradients, which is seen in what changes smoothly, where there is little noise.
/// @param gradients  of smooth surfaces, at the used sub-apertures
/// @param surfaces   of one degree less, as these gradients' blocks are
Findings CheckModes(const Matrix& m2s, const SlopeSpace& gradients, const SlopeSpace& surfaces, const Lattice& lattice,
                    const std::vector<std::size_t>& used);

}  // namespace quen::workbench
