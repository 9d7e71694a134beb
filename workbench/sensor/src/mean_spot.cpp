#include "workbench/sensor/mean_spot.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <stdexcept>
#include <vector>

#include "centroiders/correlation.hpp"
#include "common/statistics/quantile.hpp"
#include "workbench/engines/engines.hpp"
#include "workbench/fits/interruption.hpp"
#include "workbench/sensor/corrected_frame.hpp"
#include "workbench/sensor/dimensions.hpp"
#include "workbench/sensor/displacements.hpp"
#include "workbench/sensor/overlay.hpp"
#include "workbench/sensor/pedestal.hpp"

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

/// What neighbours at a region's upper and lower border differ by, in the root mean square, over √2: noise alone,
/// however uneven the light is. None where there are no neighbours.
std::optional<double> NoiseAtBorder(const std::vector<double>& values, const Roi& roi) {
  double sum = 0.0;
  double pairs = 0.0;
  for (const std::size_t row : {std::size_t{roi.y_low}, std::size_t{roi.y_up} - 1U}) {
    for (std::size_t column = roi.x_low; column + 1 < roi.x_up; ++column) {
      const double* const pixel = values.data() + column + kFrameWidth * row;
      const double difference = pixel[1] - pixel[0];
      if (std::isnan(difference)) continue;
      sum += 0.5 * difference * difference;
      pairs += 1.0;
    }
  }
  return pairs > 0.0 ? std::optional(std::sqrt(sum / pairs)) : std::nullopt;
}

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
    noise_.clear();
    for (std::size_t number = 0; number < frames_.Count(); ++number) {
      ThrowIfInterrupted();
      const std::vector<double> values = CorrectedValues(frames_.Read(number), maps_);
      const double pedestal = PedestalOf(values, kFrameWidth, camera_.Rois(), camera_.RoisUsed()).counts;
      for (const auto& [region, centre] : spots_[number]) {
        if (const auto noise = NoiseAtBorder(values, camera_.Rois()[region])) noise_.push_back(*noise);
        stack.Add(values, camera_.Rois()[region], {centre.x + shift.x, centre.y + shift.y}, pedestal);
      }
    }
    return stack;
  }

  /// That of a pixel between the spots that are stacked: the median over their regions.
  [[nodiscard]] double Noise() { return common::LowerMedian(noise_); }

 private:
  const FrameReader& frames_;
  const PixelMaps& maps_;
  const Camera& camera_;
  std::vector<std::vector<Spot>> spots_;  ///< of each frame
  std::vector<double> noise_;             ///< at the border of each
};

}  // namespace

SpotTemplate MeanSpot(const FrameReader& frames, const PixelMaps& maps, Camera& camera) {
  RequireSensorSize(frames);
  // Where there is noise alone, the correlation finds in each region where it is brightest by chance: the mean of these
  // is a spot, too, with 0.7 to 1.1 times the deviation of a pixel for its height, as Gaussian noise, Poisson's and
  // even noise give it.
  constexpr double kLeastHeight = 1.5;
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
  if (height < kLeastHeight * spots.Noise()) {
    throw std::runtime_error(
        fmt::format("{}: expected spots that stand out of the noise, to make a template of, found "
                    "{:.2g} counts of light where a pixel's noise is {:.2g}",
                    frames.Name(), height, spots.Noise()));
  }
  for (double& value : spot.values) value /= height;
  return spot;
}

}  // namespace quen::workbench
