#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

/// @file
/// The synthetic sensor: a 33 × 33 grid of sub-apertures on the detector, behind an annular pupil.
///
/// Detector coordinates: pixel centres are at integers, x counts columns, y counts rows. Pupil coordinates: origin in
/// the pupil's centre, axes as the detector's, the pupil's outer edge at distance 1.

namespace quen_shs {

inline constexpr std::size_t kGridSize = 33;          ///< sub-apertures along each axis
inline constexpr int kPitch = 24;                     ///< pixels from one sub-aperture to the next, and their size
inline constexpr int kFirstColumn = 24;               ///< first pixel column of sub-aperture 0
inline constexpr int kFirstRow = 12;                  ///< first pixel row of sub-aperture 0
inline constexpr int kPupilRadius = 29 * kPitch / 2;  ///< outer radius, pixels: 29 sub-apertures across
inline constexpr double kObscuration = 0.28;          ///< inner radius over outer radius
inline constexpr double kPupilCentreX = kFirstColumn + (kGridSize * kPitch - 1) / 2.0;
inline constexpr double kPupilCentreY = kFirstRow + (kGridSize * kPitch - 1) / 2.0;

/// First pixel column and row of sub-aperture `i`. Sub-apertures are counted row by row.
inline int FirstColumn(std::size_t i) { return kFirstColumn + kPitch * static_cast<int>(i % kGridSize); }
inline int FirstRow(std::size_t i) { return kFirstRow + kPitch * static_cast<int>(i / kGridSize); }

/// Centre of sub-aperture `i` on the detector: half a pixel from the pixels around it.
inline double CentreX(std::size_t i) { return FirstColumn(i) + (kPitch - 1) / 2.0; }
inline double CentreY(std::size_t i) { return FirstRow(i) + (kPitch - 1) / 2.0; }

/// Number of the sub-aperture's pixels whose centre lies in the pupil, edges included.
int LitPixels(std::size_t i);

/// Usage flags: 1 for the 607 best-lit sub-apertures, those of lower index first among equals.
std::vector<std::uint8_t> UsedFlags();

}  // namespace quen_shs
