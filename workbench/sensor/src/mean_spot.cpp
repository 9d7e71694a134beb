#include "workbench/sensor/mean_spot.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <stdexcept>
#include <vector>

#include "centroiders/correlation.hpp"
#include "workbench/engines/engines.hpp"
#include "workbench/fits/interruption.hpp"
#include "workbench/sensor/corrected_frame.hpp"
#include "workbench/sensor/dimensions.hpp"
#include "workbench/sensor/displacements.hpp"
#include "workbench/sensor/overlay.hpp"
#include "workbench/sensor/pedestal.hpp"
#include "workbench/sensor/spot_contrast.hpp"

namespace quen::workbench {
namespace {

/// In pixels of the frame, or of a template from its middle.
struct PixelPoint {
  double x = 0.0;
  double y = 0.0;
};

struct Spot {
  std::size_t region;
  PixelPoint centre;
};

std::vector<Spot> SpotsIn(const Frame& frame, const PixelMaps& maps, Camera& camera) {
  const auto engine =
      MakeEngine("correlation:top=surface,subtract=border", {.sign = frame.Sign(), .maps = WithBlanks(maps, frame)});
  camera.Load(frame.pixels);
  camera.ComputeSlopes(*engine, kSlopeLimit, std::nullopt);
  std::vector<Spot> spots;
  for (const std::size_t i : UsedIndices(camera.RoisUsed())) {
    const double x = camera.XSlopes()[i];
    const double y = camera.YSlopes()[i];
    const bool is_within = std::abs(x) < kSlopeLimit && std::abs(y) < kSlopeLimit;
    if (is_within && camera.Flux()[i] > 0.0)
      spots.push_back({i, {camera.Rois()[i].x_ref + x, camera.Rois()[i].y_ref + y}});
  }
  return spots;
}

/// Weight of a pixel in cubic convolution.
double Cubic(double distance) {
  const double d = std::abs(distance);
  if (d < 1.0) return (1.5 * d - 2.5) * d * d + 1.0;
  return d < 2.0 ? ((-0.5 * d + 2.5) * d - 4.0) * d + 2.0 : 0.0;
}

/// The value at a place between pixels; none where not all pixels around it are in the region, and count.
std::optional<double> ValueAt(const std::vector<double>& values, const Roi& roi, const PixelPoint& place) {
  constexpr std::ptrdiff_t kReach = 2;  // of the convolution
  const auto first_column = static_cast<std::ptrdiff_t>(std::floor(place.x)) + 1 - kReach;
  const auto first_row = static_cast<std::ptrdiff_t>(std::floor(place.y)) + 1 - kReach;
  if (first_column < roi.x_low || first_column + 2 * kReach > roi.x_up) return std::nullopt;
  if (first_row < roi.y_low || first_row + 2 * kReach > roi.y_up) return std::nullopt;
  double sum = 0.0;
  for (std::ptrdiff_t row = first_row; row < first_row + 2 * kReach; ++row) {
    const double weight = Cubic(place.y - static_cast<double>(row));
    for (std::ptrdiff_t column = first_column; column < first_column + 2 * kReach; ++column) {
      const auto pixel = static_cast<std::size_t>(column) + kFrameWidth * static_cast<std::size_t>(row);
      sum += weight * Cubic(place.x - static_cast<double>(column)) * values[pixel];
    }
  }
  return std::isnan(sum) ? std::nullopt : std::optional(sum);
}

/// Spots, added up around their centres.
class Stack {
 public:
  explicit Stack(std::size_t size) : size_(size), sums_(size * size), counts_(size * size) {}

  void Add(const std::vector<double>& values, const Roi& roi, const PixelPoint& centre, double pedestal) {
    for (std::size_t k = 0; k < sums_.size(); ++k) {
      const PixelPoint off = OffMiddle(k);
      if (const auto value = ValueAt(values, roi, {centre.x + off.x, centre.y + off.y})) {
        sums_[k] += *value - pedestal;
        counts_[k] += 1.0;
      }
    }
  }

  [[nodiscard]] SpotTemplate Mean() const {
    SpotTemplate spot = {size_, sums_};
    for (std::size_t k = 0; k < sums_.size(); ++k) spot.values[k] /= std::max(1.0, counts_[k]);
    return spot;
  }

  /// Centre of gravity of the mean, from the middle pixel.
  [[nodiscard]] PixelPoint CentreOfGravity() const {
    const SpotTemplate mean = Mean();
    PixelPoint moment;
    double light = 0.0;
    for (std::size_t k = 0; k < mean.values.size(); ++k) {
      const PixelPoint off = OffMiddle(k);
      light += mean.values[k];
      moment.x += mean.values[k] * off.x;
      moment.y += mean.values[k] * off.y;
    }
    return light > 0.0 ? PixelPoint{moment.x / light, moment.y / light} : PixelPoint{};
  }

 private:
  [[nodiscard]] PixelPoint OffMiddle(std::size_t k) const {
    const double middle = 0.5 * static_cast<double>(size_ - 1);
    const std::size_t column = k % size_;
    const std::size_t row = k / size_;
    return {static_cast<double>(column) - middle, static_cast<double>(row) - middle};
  }

  std::size_t size_;
  std::vector<double> sums_;
  std::vector<double> counts_;
};

/// All spots of all frames.
class SpotsOfFrames {
 public:
  SpotsOfFrames(const FrameReader& frames, const PixelMaps& maps, Camera& camera)
      : frames_(frames), maps_(maps), camera_(camera) {
    for (std::size_t number = 0; number < frames.Count(); ++number) {
      ThrowIfInterrupted();
      spots_.push_back(SpotsIn(frames.Read(number), maps, camera));
    }
  }

  /// Each shifted by as much.
  [[nodiscard]] Stack Stacked(const PixelPoint& shift) {
    Stack stack(quen::centroiders::CorrelationConfig().size);
    for (std::size_t number = 0; number < frames_.Count(); ++number) {
      ThrowIfInterrupted();
      const std::vector<double> values = CorrectedValues(frames_.Read(number), maps_);
      const double pedestal = PedestalOf(values, kFrameWidth, camera_.Rois(), camera_.RoisUsed()).counts;
      for (const auto& [region, centre] : spots_[number]) {
        stack.Add(values, camera_.Rois()[region], {centre.x + shift.x, centre.y + shift.y}, pedestal);
      }
    }
    return stack;
  }

  /// How the frames differ from noise.
  [[nodiscard]] double Contrast() const {
    SpotContrast contrast;
    for (std::size_t number = 0; number < frames_.Count(); ++number) {
      ThrowIfInterrupted();
      const std::vector<double> values = CorrectedValues(frames_.Read(number), maps_);
      for (const std::size_t i : UsedIndices(camera_.RoisUsed())) contrast.Add(values, kFrameWidth, camera_.Rois()[i]);
    }
    return contrast.Ratio();
  }

 private:
  const FrameReader& frames_;
  const PixelMaps& maps_;
  const Camera& camera_;
  std::vector<std::vector<Spot>> spots_;  ///< of each frame
};

}  // namespace

SpotTemplate MeanSpot(const FrameReader& frames, const PixelMaps& maps, Camera& camera) {
  RequireSensorSize(frames);
  constexpr double kLeastContrast = 2.0;
  constexpr int kSteps = 2;  // the second one is for what regions cut off differently once the first is done
  SpotsOfFrames spots(frames, maps, camera);
  PixelPoint shift;
  for (int step = 0; step < kSteps; ++step) {
    const PixelPoint off = spots.Stacked(shift).CentreOfGravity();
    shift = {shift.x + off.x, shift.y + off.y};
  }
  const bool is_near = std::abs(shift.x) < kSlopeLimit && std::abs(shift.y) < kSlopeLimit;
  SpotTemplate spot = spots.Stacked(is_near ? shift : PixelPoint()).Mean();
  const double height = std::ranges::max(spot.values);
  if (!is_near || !(height > 0.0)) {
    throw std::runtime_error(frames.Name() + ": there is no spot in it to make a template of");
  }
  const double contrast = spots.Contrast();
  if (contrast < kLeastContrast) {
    throw std::runtime_error(
        fmt::format("{}: expected spots that stand out of the noise, to make a template of, at least {:.2g} times as "
                    "bright as the same pixels at random, found {:.2g} times",
                    frames.Name(), kLeastContrast, contrast));
  }
  for (double& value : spot.values) value /= height;
  return spot;
}

}  // namespace quen::workbench
