#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "workbench/sensor/dimensions.hpp"

namespace quen::workbench {

/// Pixels that stay bright, as hot ones do.
struct HotPixels {
  std::size_t pixels = 0;
  std::size_t spots = 0;   ///< that have one in their regions
  std::size_t column = 0;  ///< of the brightest one, from 0
  std::size_t row = 0;
};

/// Looks for bright pixels that can be no part of a spot, frame by frame. Such a pixel is brighter than all its
/// neighbours
/// - by ten times the noise, which is told from neighbours' differences, but ten counts at the least, and
/// - by a tenth of the spot's height,
///
/// and more than three pixels away from the spot, which is the region's brightest place if no pixel counts for more
/// than its brightest neighbour: so a spot that is as narrow as a pixel is none of them.
///
/// Pixels are hot if they are like that in three quarters of the frames. Of one or two frames, where they could as well
/// be cosmic rays or single photons of a camera that multiplies electrons, they must be so in all of them, and in no
/// more than a fifth of the regions.
class HotPixelSearch {
 public:
  /// Looks at the regions that are used. Those that are empty or reach out of the frame do not count.
  /// @param values  of the frame's pixels, as CorrectedValues gives them; those that are NaN do not count
  /// @param width   of the frame, pixels
  void Add(const std::vector<double>& values, std::size_t width, const std::vector<Roi>& rois,
           const std::vector<std::uint8_t>& used);

  [[nodiscard]] HotPixels Found() const;

 private:
  struct Pixel {
    std::size_t frames = 0;          ///< where it is bright
    std::vector<std::size_t> spots;  ///< in whose regions it is
    double most = 0.0;               ///< by which it is brighter than its neighbours
  };

  std::map<std::size_t, Pixel> bright_;  ///< by their places in the frame
  std::size_t frames_ = 0;
  std::size_t width_ = 0;
  std::size_t used_ = 0;  ///< regions
};

}  // namespace quen::workbench
