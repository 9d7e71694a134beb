#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "quen_image_processing/centroiding/centroiding.hpp"

namespace quen_benchmarks {

/// The formula of ShsSimulator::ComputeFrame, pixel by pixel: what every other row is compared with. Compiled with -O2
/// and the standard library's assertions, as a careful host would.
void PlainLoop(const std::vector<quen::image_processing::Roi>& rois, const std::vector<double>& dx,
               const std::vector<double>& dy, double noise, std::mt19937& generator, std::vector<double>& values,
               std::vector<std::uint16_t>& pixels);

/// The centre of gravity as every host writes it: a double loop over a region's pixels.
class PlainCentreOfGravity : public quen::image_processing::Centroiding<std::uint16_t> {
 public:
  void Compute(gsl::span<const std::uint16_t> frame, const quen::image_processing::Roi& roi) override;
};

}  // namespace quen_benchmarks
