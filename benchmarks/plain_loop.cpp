#include "benchmarks/plain_loop.hpp"

#include <cmath>

#include "shssim/spot.hpp"

namespace quen_benchmarks {

void PlainLoop(const std::vector<quen::image_processing::Roi>& rois, const std::vector<double>& dx,
               const std::vector<double>& dy, double noise, std::mt19937& generator, std::vector<double>& values,
               std::vector<std::uint16_t>& pixels) {
  for (std::size_t i = 0; i < rois.size(); ++i) {
    const double cx = rois[i].x_ref + dx[i];
    const double cy = rois[i].y_ref + dy[i];
    for (std::size_t y = rois[i].y_low; y < rois[i].y_up; ++y) {
      for (std::size_t x = rois[i].x_low; x < rois[i].x_up; ++x) {
        const double n = std::uniform_real_distribution<double>(-noise, noise)(generator);
        const double x_distance = static_cast<double>(x) - cx;
        const double y_distance = static_cast<double>(y) - cy;
        const double r2 = x_distance * x_distance + y_distance * y_distance;
        const double value = quen::shssim::kSpotPeak * std::exp(quen::shssim::kSpotExponent * r2) + n;
        values[x + 840 * y] = value;
        pixels[x + 840 * y] = static_cast<std::uint16_t>(static_cast<std::int32_t>(value));
      }
    }
  }
}

void PlainCentreOfGravity::Compute(gsl::span<const std::uint16_t> frame, const quen::image_processing::Roi& roi) {
  flux = x = y = 0.0;
  for (std::size_t row = roi.y_low; row < roi.y_up; ++row) {
    for (std::size_t column = roi.x_low; column < roi.x_up; ++column) {
      const double light = static_cast<std::int16_t>(frame[column + row * roi.x_max]);
      flux += light;
      x += light * static_cast<double>(column);
      y += light * static_cast<double>(row);
    }
  }
  x = x / flux - roi.x_ref;
  y = y / flux - roi.y_ref;
}

}  // namespace quen_benchmarks
