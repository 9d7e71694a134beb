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
Stretch ZScaleStretch(const Frame& frame);

/// Logarithmic, from 0 to the brightest pixel.
Stretch LogarithmicStretch(const Frame& frame);

/// Words for the stretches, as arguments give them.
std::vector<std::string> StretchWords();
Stretch StretchByWord(const std::string& word, const Frame& frame);

}  // namespace quen::workbench
