#pragma once

#include <string>

#include "workbench/detector/photon_transfer.hpp"

namespace quen::workbench {

/// Draws a photon-transfer curve: variance against mean, both in counts, and the line of the measured gain. Returns a
/// PNG file.
/// @param name  of the detector
/// @throws std::runtime_error  there is no memory for it
std::string DrawTransfer(const PhotonTransfer& transfer, const std::string& name);

}  // namespace quen::workbench
