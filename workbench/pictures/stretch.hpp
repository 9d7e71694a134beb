#pragma once

#include <string>
#include <vector>

#include "workbench/sensor/frame_file.hpp"

namespace quen::workbench {

/// How pixel values become shades of grey.
struct Stretch {
  enum class Curve { kLinear, kSquareRoot, kLogarithm };

  double black;
  double white;
  Curve curve;

  /// Shade of a pixel value, 0 (black) to 1 (white).
  [[nodiscard]] double Shade(double value) const;
};

/// For spots as the simulator draws them: square root, from 0 to the spot's peak.
Stretch SpotStretch();

/// Linear, between limits around the median that follow from the slope of the sorted values: the zscale of IRAF's
/// display task, with its usual contrast of 0.25 and 1000 samples.
/// @param values  at least one, finite
/// @return  white is not above black where they are even
Stretch ZScaleStretch(const std::vector<double>& values);
Stretch ZScaleStretch(const Frame& frame);

/// Logarithmic, from 0 to the brightest pixel.
Stretch LogarithmicStretch(const Frame& frame);

/// Square root, from the 25th percentile of the pixels, which a camera's pedestal is near, to the 99.5th: peaks of
/// spots, below the hot pixels.
Stretch PercentileStretch(const Frame& frame);

/// For a frame that was just drawn: by percentiles if it has a camera's counts, else as for spots.
Stretch StretchOfDrawn(const Frame& frame);

/// Words for the stretches, as arguments give them.
std::vector<std::string> StretchWords();
/// The word that "auto" stands for: percentile for a camera's counts, else log. Others stand for themselves.
std::string ResolvedStretch(const std::string& word, const Frame& frame);
Stretch StretchByWord(const std::string& word, const Frame& frame);

}  // namespace quen::workbench
