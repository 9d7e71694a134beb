#include "workbench/sensor/corrected_frame.hpp"

#include <cmath>
#include <limits>

namespace quen::workbench {

PixelMaps WithBlanks(PixelMaps maps, const Frame& frame) {
  if (!frame.blank.empty()) maps.bad.resize(frame.blank.size());
  for (std::size_t k = 0; k < frame.blank.size(); ++k) maps.bad[k] |= frame.blank[k];
  return maps;
}

std::vector<double> CorrectedValues(const Frame& frame, const PixelMaps& maps) {
  constexpr double kLeastResponse = 0.001;
  std::vector<double> values = frame.Values();
  for (std::size_t k = 0; k < maps.dark.size(); ++k) values[k] -= maps.dark[k];
  for (std::size_t k = 0; k < maps.flat.size(); ++k) {
    values[k] = maps.flat[k] < kLeastResponse ? std::numeric_limits<double>::quiet_NaN() : values[k] / maps.flat[k];
  }
  for (std::size_t k = 0; k < maps.bad.size(); ++k) {
    if (maps.bad[k] != 0) values[k] = std::numeric_limits<double>::quiet_NaN();
  }
  return values;
}

}  // namespace quen::workbench
