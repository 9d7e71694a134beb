#pragma once

#include <cstddef>
#include <cstdint>
#include <gsl/span>
#include <random>
#include <vector>

#include "common/simd/level.hpp"
#include "quen_image_processing/roi/roi.hpp"

namespace quen::shssim {

/// The frame before and after its conversion to pixels, 840 × 816 each, row-major.
struct FrameBuffers {
  std::vector<double>& values;
  std::vector<std::uint16_t>& pixels;
};

/// What a rendering did.
struct RenderReport {
  common::simd::Level level;  ///< of the code that ran
  std::size_t near_pixels;    ///< drawn by the vectorised kernel; the others went through the formula one by one
};

/// Whether any region has a pixel to draw.
bool HasPixels(const std::vector<image_processing::Roi>& rois);

/// Ends the process for a noise that is no half-width: negative, or NaN.
void CheckNoise(double noise);

/// Draws every region's spot and noise, as ShsSimulator::ComputeFrame says. Every level gives the same bits in both
/// frames and leaves the generator in the same state.
///
/// @param dx, dy  displacements, as many as there are regions
/// @param noise   half-width; negative or NaN ends the process at the first pixel
RenderReport RenderFrame(common::simd::Level level, const std::vector<image_processing::Roi>& rois,
                         gsl::span<const double> dx, gsl::span<const double> dy, double noise, std::mt19937& generator,
                         FrameBuffers frame);

}  // namespace quen::shssim
