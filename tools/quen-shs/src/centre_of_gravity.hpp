#pragma once

#include <cstdint>

#include "quen_image_processing/centroiding/centroiding.hpp"

namespace quen_shs {

/// The plain centre of gravity of a region's pixels, each read as a signed 16-bit number: under noise dark pixels go
/// below zero and wrap, and clipping them would pull every spot toward the region's middle.
///
/// A region whose pixels add up to nothing or less has flux as summed and displacement 0. An empty one has flux 0.
class CentreOfGravity : public quen::image_processing::Centroiding<std::uint16_t> {
 public:
  void Compute(gsl::span<const std::uint16_t> frame, const quen::image_processing::Roi& roi) override;
};

}  // namespace quen_shs
