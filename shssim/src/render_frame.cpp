#include "shssim/src/render_frame.hpp"

#include <algorithm>
#include <cmath>

#include "basesim/base_simulator.hpp"
#include "shssim/shs_simulator.hpp"
#include "shssim/spot.hpp"
#include "shssim/src/noise.hpp"
#include "shssim/src/spot_kernel.hpp"
#include "shssim/truncation.hpp"

namespace quen::shssim {
namespace {

using common::simd::Level;
using image_processing::Roi;

double Square(double value) { return value * value; }

void Store(std::size_t x, std::size_t y, double value, FrameBuffers frame) {
  frame.values[x + kFrameWidth * y] = value;
  frame.pixels[x + kFrameWidth * y] = TruncateToPixel(value);
}

double Gaussian(std::size_t x, std::size_t y, double cx, double cy) {
  const double r2 = Square(static_cast<double>(x) - cx) + Square(static_cast<double>(y) - cy);
  return kSpotPeak * std::exp(kSpotExponent * r2);
}

// --- The formula, pixel by pixel -----------------------------------------------------------------------------------

void DrawPlain(const Roi& roi, double cx, double cy, double noise, std::mt19937& generator, FrameBuffers frame) {
  for (std::size_t y = roi.y_low; y < roi.y_up; ++y) {
    for (std::size_t x = roi.x_low; x < roi.x_up; ++x) {
      // Made per pixel: a bad noise must not matter where no pixel is drawn.
      const double n = std::uniform_real_distribution<double>(-noise, noise)(generator);
      Store(x, y, Gaussian(x, y, cx, cy) + n, frame);
    }
  }
}

// --- The same with noise in bulk, and spots by the vectorised kernel where it can ----------------------------------

std::size_t Width(const Roi& roi) { return roi.x_up > roi.x_low ? roi.x_up - roi.x_low : 0; }
std::size_t Height(const Roi& roi) { return roi.y_up > roi.y_low ? roi.y_up - roi.y_low : 0; }

/// Any region, with the formula's Gaussian; each row in pieces for which the noise gives numbers.
void DrawFar(const Spot& spot, Noise& noise, FrameBuffers frame) {
  const std::size_t end = spot.x_low + spot.width;
  for (std::size_t y = spot.y_low; y < spot.y_low + spot.height; ++y) {
    for (std::size_t first = spot.x_low; first < end; first += Noise::kMaxTake) {
      const std::size_t count = std::min(end - first, Noise::kMaxTake);
      const double* const u = noise.Take(count);
      for (std::size_t k = 0; k < count; ++k) {
        Store(first + k, y, Gaussian(first + k, y, spot.cx, spot.cy) + noise.Scaled(u[k]), frame);
      }
    }
  }
}

/// Ends the process, as the pixel-by-pixel loop does, for a noise that is no half-width or a pixel outside the frame.
void Check(const Spot& spot, double noise, FrameBuffers frame) {
  CheckNoise(noise);
  const std::size_t last = spot.x_low + spot.width - 1 + kFrameWidth * (spot.y_low + spot.height - 1);
  [[maybe_unused]] const double inside = frame.values[last];
  [[maybe_unused]] const std::uint16_t also_inside = frame.pixels[last];
}

}  // namespace

bool HasPixels(const std::vector<Roi>& rois) {
  return std::ranges::any_of(rois, [](const Roi& roi) { return Width(roi) * Height(roi) > 0; });
}

void CheckNoise(double noise) { [[maybe_unused]] const std::uniform_real_distribution<double> checked(-noise, noise); }

RenderReport RenderFrame(Level level, const std::vector<Roi>& rois, gsl::span<const double> dx,
                         gsl::span<const double> dy, double noise, std::mt19937& generator, FrameBuffers frame) {
  RenderReport report = {Level::kPlain, 0};
  if (level == Level::kPlain) {
    for (std::size_t i = 0; i < rois.size(); ++i) {
      DrawPlain(rois[i], rois[i].x_ref + dx[i], rois[i].y_ref + dy[i], noise, generator, frame);
    }
    return report;
  }
  Noise bulk(level, generator, noise);
  for (std::size_t i = 0; i < rois.size(); ++i) {
    const Roi& roi = rois[i];
    const Spot spot = {roi.x_low, roi.y_low, Width(roi), Height(roi), roi.x_ref + dx[i], roi.y_ref + dy[i]};
    if (spot.width == 0 || spot.height == 0) continue;
    Check(spot, noise, frame);
    if (IsNear(spot, bulk)) {
      report.level = DrawNearSpot(level, spot, bulk, frame.values.data(), frame.pixels.data());
      report.near_pixels += spot.width * spot.height;
    } else {
      DrawFar(spot, bulk, frame);
    }
  }
  return report;
}

}  // namespace quen::shssim
