#pragma once

#include <cstddef>
#include <random>
#include <vector>

#include "workbench/sensor/dimensions.hpp"

namespace quen::workbench {

/// Tells spots from noise, whatever the distribution of the noise, as that of a few photons.
///
/// Where there is noise alone, every region has a place that looks most like a spot. It would have as good a one if its
/// pixels were exchanged with each other at random; a region with a spot would not. What a place is like is the sum of
/// its pixels, less the region's median, with the drawn spot for weights.
class SpotContrast {
 public:
  /// @param values  of a frame's pixels, row-major; those that are NaN do not count
  /// @param width   of the frame, pixels
  void Add(const std::vector<double>& values, std::size_t width, const Roi& roi);

  /// The best places of all regions over those of the same pixels at random. 1, give or take 0.02 for a frame, for
  /// noise whose pixels do not depend on each other; 5 for spots of 500 electrons with a read noise of 3; infinite
  /// where there is nothing to compare with: no light, or no region of nine columns and rows.
  [[nodiscard]] double Ratio() const;

 private:
  std::mt19937 random_;  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same frames have the same contrast
  double found_ = 0.0;
  double by_chance_ = 0.0;
};

}  // namespace quen::workbench
