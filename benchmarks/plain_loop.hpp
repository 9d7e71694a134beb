#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "quen_image_processing/roi/roi.hpp"

namespace quen_benchmarks {

/// The formula of ShsSimulator::ComputeFrame, pixel by pixel: what every other row is compared with. Compiled with -O2
/// and the standard library's assertions, as a careful host would.
void PlainLoop(const std::vector<quen::image_processing::Roi>& rois, const std::vector<double>& dx,
               const std::vector<double>& dy, double noise, std::mt19937& engine, std::vector<double>& values,
               std::vector<std::uint16_t>& pixels);

}  // namespace quen_benchmarks
