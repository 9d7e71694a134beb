#pragma once

#include <optional>
#include <string>
#include <vector>

#include "shssim/shs_simulator.hpp"
#include "workbench/sensor/calibration.hpp"

/// @file
/// The layout of slope vectors, found without knowing the modes: the slopes of any smooth wavefront are a gradient, and
/// a gradient has no curl. Around four neighbouring sub-apertures its circulation vanishes, to the order in which the
/// wavefront is a quadratic one there; if x and y are exchanged, or one of them has another sign, it does not.

namespace quen::workbench {

/// Which sub-aperture each cell of the grid is.
class Grid {
 public:
  /// From the reference points: 33 columns and 33 rows between the first and the last.
  /// @return  none if the references are no such grid
  static std::optional<Grid> Find(const std::vector<quen::image_processing::Roi>& rois);

  struct Place {
    std::size_t column;
    std::size_t row;
  };
  [[nodiscard]] const Place& PlaceOf(std::size_t i) const { return places_[i]; }

  /// Whether the sub-apertures are listed row by row, and not column by column.
  [[nodiscard]] bool IsListedByRows() const { return places_[1].row == places_[0].row; }

 private:
  std::vector<Place> places_;
};

/// How the slopes in a matrix may be laid out.
enum class Layout {
  kRight,       ///< y block, then x block, both in the order of the used sub-apertures
  kExchanged,   ///< x block first
  kFlipped,     ///< one block has the other sign
  kTurned,      ///< x block first, and one block has the other sign: a turn by a right angle
  kGridTurned,  ///< each sub-aperture's slopes are those of the one with row and column exchanged
  kOtherOrder   ///< counted column by column where the sub-apertures are listed row by row, or the other way round
};

/// Mean squared circulation of all modes around four used neighbours, each mode scaled to unit RMS, over what it would
/// be for slopes without any order.
/// @param fields  1214 × 52, a mode per column
double Curl(const Matrix& fields, Layout layout, const Grid& grid, const std::vector<std::size_t>& used);

}  // namespace quen::workbench
