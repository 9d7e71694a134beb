#pragma once

#include <compare>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "workbench/sensor/dimensions.hpp"

/// @file
/// The grid that the sub-apertures lie on, and the orders in which a list may go through them.

namespace quen::workbench {

/// The place of each sub-aperture, counted from the lowest row and column of the grid; row by row.
struct Place {
  int row;
  int column;

  auto operator<=>(const Place&) const = default;
};

/// A square grid fitted to the references: neighbours are found by their distance, so that the grid may be turned by a
/// few degrees and stretched, its references scattered and some of them missing.
struct Lattice {
  /// @return  none if the references are on no such grid, or two of them in one place
  static std::optional<Lattice> Fit(const std::vector<Roi>& rois);

  double pitch_x;  ///< pixels
  double pitch_y;
  std::vector<Place> places;
};

/// Of each place with a used sub-aperture, its number in the list of the used ones.
using NumbersByPlace = std::map<Place, std::size_t>;
NumbersByPlace NumbersOf(const Lattice& lattice, const std::vector<std::size_t>& used);

/// A list of the used sub-apertures in one of the orders that programs write.
struct ListOrder {
  std::string mistake;  ///< stable word, after the order of the calibration's own regions
  std::string words;
  std::vector<std::size_t> place;    ///< entry k of the list is the place[k]-th used sub-aperture
  std::vector<std::size_t> regions;  ///< all sub-apertures in this order
};

/// All orders of the used sub-apertures that are not that of the regions: by rows or by columns, from either end of
/// either, and to and fro.
/// @return  that of the regions first, with an empty word
std::vector<ListOrder> ListOrders(const Lattice& lattice, const std::vector<std::size_t>& used);

}  // namespace quen::workbench
