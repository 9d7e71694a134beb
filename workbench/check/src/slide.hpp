#pragma once

#include <compare>
#include <cstddef>
#include <vector>

#include "workbench/check/src/lattice.hpp"
#include "workbench/check/src/matrix_layouts.hpp"
#include "workbench/check/src/slope_space.hpp"

/// @file
/// Lists of slopes that are one place off: all of them, where the list begins with another sub-aperture, or from one
/// place to another, where one sub-aperture is flagged in the place of another.

namespace quen::workbench {

/// A part of the list whose slopes stand one place too early or too late.
struct Slide {
  std::size_t first = 0;  ///< in the list of the used sub-apertures
  std::size_t last = 0;
  bool is_late = false;
  double gain = 0.0;  ///< share of what is no gradient that disappears once they are in place
};

inline constexpr Eigen::Index kSumsSlid = 2;  ///< of slopes, on which slides are tried

/// The parts that are to be moved for the slopes to be nearer to gradients, if there are any, the nearest first: no
/// noise makes one.
/// @param slopes  that are in the right layout but for that
std::vector<Slide> FindSlides(const Fields& slopes, const SlopeSpace& gradients, const Lattice& lattice,
                              const std::vector<std::size_t>& used);

/// A flag that stands in the place of another one.
struct MovedFlag {
  std::size_t dark;  ///< the sub-aperture that is flagged, and that the slopes pass over
  std::size_t lit;   ///< the one whose slopes are left over

  auto operator<=>(const MovedFlag&) const = default;
};

/// Which flag it may be that makes slopes slide: those with which the slopes are nearest to gradients, the nearest
/// first. The lit one is beside used ones, and the list passes over it where the slopes begin to be off.
/// @param slides  as they are found
std::vector<MovedFlag> MovedFlags(const std::vector<Slide>& slides, const CalibrationContent& content,
                                  const Lattice& lattice);

/// Puts it back.
void PutBack(const MovedFlag& flag, UsageFlags& flags);

}  // namespace quen::workbench
