#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "workbench/check/src/lattice.hpp"
#include "workbench/check/src/slope_space.hpp"

/// @file
/// Lists of slopes that are one place off: all of them, where the list begins with another sub-aperture, or from one
/// place to another, where a sub-aperture is flagged in the place of another one.

namespace quen::workbench {

/// A part of the list whose slopes stand one place too early or too late.
struct Slide {
  std::size_t first = 0;  ///< in the list of the used sub-apertures
  std::size_t last = 0;
  bool is_late = false;
  double gain = 0.0;  ///< share of what is no gradient that disappears once they are in place

  [[nodiscard]] bool IsOfAll(std::size_t size) const { return first == 0 && last + 1 == size; }
};

/// The part that is to be moved for the slopes to be nearest to gradients, if there is one: no noise makes one.
/// @param slopes  that are in the right layout but for that
std::optional<Slide> FindSlide(const Fields& slopes, const SlopeSpace& gradients, const Lattice& lattice,
                               const std::vector<std::size_t>& used);

}  // namespace quen::workbench
