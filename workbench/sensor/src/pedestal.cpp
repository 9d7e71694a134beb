#include "workbench/sensor/pedestal.hpp"

#include <cmath>
#include <limits>

#include "common/statistics/quantile.hpp"
#include "workbench/engines/engines.hpp"
#include "workbench/sensor/corrected_frame.hpp"
#include "workbench/sensor/frame_file.hpp"
#include "workbench/sensor/overlay.hpp"

namespace quen::workbench {
namespace {

using quen::common::LowerMedian;

struct RegionLight {
  double border = 0.0;  ///< median of the outermost pixels
  double sum = 0.0;     ///< of all
  double pixels = 0.0;  ///< of which
};

RegionLight LightOf(const std::vector<double>& values, std::size_t width, const Roi& roi) {
  std::vector<double> border;
  RegionLight light;
  for (std::size_t row = roi.y_low; row < roi.y_up; ++row) {
    for (std::size_t column = roi.x_low; column < roi.x_up; ++column) {
      const double value = values[row * width + column];
      if (std::isnan(value)) continue;
      light.sum += value;
      light.pixels += 1.0;
      const bool is_inside = row > roi.y_low && row + 1 < roi.y_up && column > roi.x_low && column + 1 < roi.x_up;
      if (!is_inside) border.push_back(value);
    }
  }
  light.border = LowerMedian(border);
  return light;
}

}  // namespace

bool Pedestal::IsNoticeable() const {
  constexpr double kNoticed = 0.05;  // by which the mean of a region loses gain
  return std::abs(share) >= kNoticed;
}

Pedestal PedestalOf(const std::vector<double>& values, std::size_t width, const std::vector<Roi>& rois,
                    const std::vector<std::uint8_t>& used) {
  const std::size_t height = values.size() / width;
  std::vector<double> borders;
  double sum = 0.0;
  double pixels = 0.0;
  for (const std::size_t i : UsedIndices(used)) {
    const Roi& roi = rois[i];
    if (roi.x_low >= roi.x_up || roi.y_low >= roi.y_up || roi.x_up > width || roi.y_up > height) continue;
    const RegionLight light = LightOf(values, width, roi);
    borders.push_back(light.border);
    sum += light.sum;
    pixels += light.pixels;
  }
  Pedestal pedestal = {LowerMedian(borders), 0.0};
  const double added = pedestal.counts * pixels;
  if (added != 0.0) pedestal.share = sum > added ? added / (sum - added) : std::numeric_limits<double>::infinity();
  return pedestal;
}

std::optional<Pedestal> PedestalOfDetector(Camera& camera, const Exposure& exposure) {
  if (!exposure.detector) return std::nullopt;
  camera.Use(exposure);
  camera.Draw({});
  return PedestalOf(CorrectedValues(FrameOf(camera, exposure), InputsFor(exposure.detector).maps), kFrameWidth,
                    camera.Rois(), camera.RoisUsed());
}

}  // namespace quen::workbench
