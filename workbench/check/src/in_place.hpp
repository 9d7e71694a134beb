#pragma once

#include <cstddef>
#include <vector>

#include "workbench/check/src/lattice.hpp"
#include "workbench/check/src/slope_space.hpp"

/// @file
/// Whether slopes are in their places, whatever their signs and units.
///
/// Shares of the slopes that are a smooth wavefront's, as measured on calibrations of four kinds of modes, eight pupils
/// and eleven lenslet arrays, of which no noise, 5 %, a tenth or a fifth of each mode's RMS is noise:
///
///                                                 no noise       5 %            a tenth        a fifth
///   M2S in place, median of the modes             0.979 to 1     0.977 to 1     0.970 to 0.99  0.945 to 0.97
///   with the flags of another pupil               up to 0.962    up to 0.959    up to 0.953    up to 0.929
///   with a list that begins three further on      up to 0.968    up to 0.965    up to 0.958    up to 0.933
///   CM in place, mean of the modes                0.918 to 1     0.906 to 0.99  0.872 to 0.97  0.769 to 0.91
///   with the flags of another pupil               up to 0.884    up to 0.877    up to 0.859    up to 0.795
///
/// A list that begins one further on is not always to be told from one in its place: up to 0.979.

namespace quen::workbench {

inline constexpr double kInPlaceWithNoise = 0.945;  ///< of M2S: all that are in place, with a fifth of noise even
inline constexpr double kSurelyInPlace = 0.967;     ///< of M2S: next to none that is not
inline constexpr double kCmInPlace = 0.965;         ///< none that is not

/// The share of a mode's slopes that is a smooth wavefront's where they stand, whatever their signs and units: the
/// median over the modes, some of which may be mistaken, or finer.
double ShareInPlace(const SlopeSpace& gradients, const Fields& slopes);

inline constexpr double kMisplaced = 0.5;
inline constexpr double kClearlyInPlace = 0.8;

/// How unevenly slopes change along the list of the used sub-apertures, over what of them is no smooth wavefront's. Of
/// slopes in their places, what is not smooth is noise, or details too fine, and as uneven along the list. Measured
/// with no noise, 5 %, a tenth and a fifth: 0.84 and more in place (at a fifth; with less, their share says it); with
/// the flags of another pupil below 0.23, 0.28, 0.40 and 0.65; in lists turned by 180° below 0.46, 0.47, 0.59 and 0.90,
/// also where the pupil looks the same so: these are told only once they are put right.
double UnevennessOfRest(const Fields& slopes, const SlopeSpace& gradients, const Lattice& lattice,
                        const std::vector<std::size_t>& used);

}  // namespace quen::workbench
