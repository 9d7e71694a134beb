#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "common/checks/limits.hpp"

/// @file
/// The synthetic sensor: a 33 × 33 grid of sub-apertures on the detector, behind an annular pupil that is 29
/// sub-apertures across and centred on the grid.
///
/// Detector coordinates: pixel centres are at integers, x counts columns, y counts rows. Pupil coordinates: origin in
/// the pupil's centre, axes as the detector's, the pupil's outer edge at distance 1. Sub-apertures are counted row by
/// row.

namespace quen::workbench {

inline constexpr std::size_t kGridSize = 33;           ///< sub-apertures along each axis
inline constexpr double kPupilRadius = 14.5;           ///< in sub-apertures
inline constexpr double kCellSize = 1 / kPupilRadius;  ///< of a sub-aperture, in pupil coordinates

/// What a user may choose.
struct GeometryLimits {
  static constexpr common::Limits kPitch = {1.0, 26.0};
  static constexpr common::Limits kSize = {1.0, 200.0};
  static constexpr common::Limits kOffset = {-500.0, 500.0};
  static constexpr common::Limits kObscuration = {0.0, 0.99};
  static constexpr common::Limits kSpiderAngle = {-180.0, 180.0};
  static constexpr common::Limits kSpiderWidth = {0.0, 0.5};
};

struct Geometry {
  double pitch = 24.0;                      ///< pixels from one sub-aperture to the next
  int size = 24;                            ///< of a region, pixels
  double offset_x = 0.0;                    ///< of the grid from the middle of the frame (as far as whole pixels allow)
  double offset_y = 0.0;                    ///< pixels
  double obscuration = 0.28;                ///< inner over outer diameter of the pupil
  std::optional<double> spider_angle = {};  ///< of a cross of four vanes, degrees from the x axis toward the y axis
  double spider_width = 0.01;               ///< of a vane, over the pupil's diameter
};

/// A sub-aperture on the detector.
struct Cell {
  int first_column;  ///< of the region, `Geometry::size` pixels wide
  int first_row;
  double x_ref;  ///< middle of the region as it would be if regions did not begin at whole pixels
  double y_ref;
};

Cell CellAt(const Geometry& geometry, std::size_t i);

/// Columns and rows of sub-apertures from the grid's middle to sub-aperture `i`.
inline int ColumnsFromMiddle(std::size_t i) { return static_cast<int>(i % kGridSize) - 16; }
inline int RowsFromMiddle(std::size_t i) { return static_cast<int>(i / kGridSize) - 16; }

/// Centre of sub-aperture `i` in pupil coordinates.
inline double PupilX(std::size_t i) { return ColumnsFromMiddle(i) / kPupilRadius; }
inline double PupilY(std::size_t i) { return RowsFromMiddle(i) / kPupilRadius; }

/// Of a pupil without spider: with more, fewer than 607 sub-apertures are lit.
inline constexpr double kLargestObscuration = 0.4368;

/// How many of the 24 × 24 points of sub-aperture `i` are lit: inside the pupil, edges included, and not behind the
/// spider.
int LitPoints(const Geometry& geometry, std::size_t i);

/// Usage flags: 1 for the 607 best-lit sub-apertures, those of lower index first among equals.
/// @throws std::invalid_argument  fewer than 607 are lit at all
std::vector<std::uint8_t> UsedFlags(const Geometry& geometry);

/// @throws std::invalid_argument  a region is not on the frame
void CheckFits(const Geometry& geometry);

}  // namespace quen::workbench
