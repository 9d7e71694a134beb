#pragma once

#include <cstdint>
#include <vector>

#include "workbench/detector/description.hpp"

/// @file
/// The photon-transfer curve of a detector: variance against mean of flat frames, from which a camera's gain, noise and
/// saturation are measured (Janesick, Photon Transfer, 2007).

namespace quen::workbench {

/// A pair of flat frames. The variance is half of that of their difference: what is the same in both frames, such as
/// the response of each pixel, does not count.
struct TransferPoint {
  double electrons = 0.0;  ///< of the light, expected in a pixel whose response is 1
  double mean = 0.0;       ///< counts above the dark frames'
  double variance = 0.0;   ///< counts²
};

struct PhotonTransfer {
  TransferPoint dark;                 ///< of frames without light, of which `mean` is the level itself
  std::vector<TransferPoint> points;  ///< from less than an electron to beyond saturation
  double excess = 1.0;                ///< what multiplication does to the variance: 2, and 1 without any
  double gain = 0.0;        ///< counts per photo-electron, multiplication included: slope of the variance below half of
                            ///< saturation, over the excess; NaN where that cannot be told
  double dark_noise = 0.0;  ///< electrons RMS: root of the dark variance over the gain
  double saturation = 0.0;  ///< electrons: the largest mean over the gain
};

/// Exposes pairs of frames of all pixels but bad ones.
/// @throws std::runtime_error  no light becomes electrons
PhotonTransfer MeasurePhotonTransfer(const quen::detector::DetectorConfig& config);

}  // namespace quen::workbench
