#pragma once

#include <cstddef>
#include <vector>

#include "workbench/check/src/lattice.hpp"
#include "workbench/check/src/layout.hpp"
#include "workbench/check/src/slope_space.hpp"
#include "workbench/sensor/matrices.hpp"

/// @file
/// Lists of slopes that begin with another sub-aperture than the first used one, and go on with the first one after the
/// last.

namespace quen::workbench {

/// How many places further on a matrix's lists begin, or before, if below 0: the slopes stand so many too early.
struct ListBeginnings {
  int m2s = 0;
  int cm = 0;
};

/// Looks up to three places on and back. Other orders of the list that explain the slopes as well come first.
/// @param gradients  of smooth surfaces, at the used sub-apertures
/// @param orders     of the list of these
ListBeginnings FindListBeginnings(const Matrix& m2s, const Matrix& cm, const SlopeSpace& gradients,
                                  const Lattice& lattice, const std::vector<std::size_t>& used,
                                  const std::vector<ListOrder>& orders);

/// The list of the used sub-apertures, and that which begins so many places further on.
std::vector<ListOrder> OrdersFurtherOn(int further_on, std::size_t size);

/// Slopes in the second of these orders.
inline constexpr Layout kFurtherOn = {.order = 1};

}  // namespace quen::workbench
