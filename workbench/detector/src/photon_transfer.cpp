#include "workbench/detector/photon_transfer.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "workbench/fits/interruption.hpp"

namespace quen::workbench {
namespace {

using quen::detector::Detector;
using quen::detector::DetectorConfig;
using quen::detector::kPixels;
using quen::detector::PixelState;

/// Electrons with which a pixel is full, or its count the highest.
double Fullness(const DetectorConfig& config) {
  const double highest = std::ldexp(1.0, config.bits) - 1.0;
  const double convertible = std::max(highest - config.offset, 1.0) / (config.gain * config.em_gain);
  return std::min(convertible, config.full_well.value_or(convertible));
}

/// Pairs of flat frames, of a detector that is kept.
class FlatField {
 public:
  explicit FlatField(const DetectorConfig& config)
      : detector_(config), electrons_per_unit_(config.electrons_per_unit), values_(kPixels) {
    for (std::size_t pixel = 0; pixel < kPixels; ++pixel) {
      if (config.bad_pixels.empty() || config.bad_pixels[pixel] == PixelState::kGood) good_.push_back(pixel);
    }
  }

  TransferPoint ExposePair(double electrons) {
    ThrowIfInterrupted();
    std::ranges::fill(values_, electrons / electrons_per_unit_);
    detector_.Expose(values_, frame_number_++, first_);
    detector_.Expose(values_, frame_number_++, second_);
    const auto count = static_cast<double>(good_.size());
    double sum = 0.0;
    double difference = 0.0;
    double squares = 0.0;
    for (const std::size_t pixel : good_) {
      const double first = first_[pixel];
      const double second = second_[pixel];
      sum += first + second;
      difference += first - second;
      squares += (first - second) * (first - second);
    }
    const double mean_difference = difference / count;
    return {electrons, sum / (2.0 * count), (squares / count - mean_difference * mean_difference) / 2.0};
  }

 private:
  Detector detector_;
  double electrons_per_unit_;
  std::vector<std::size_t> good_;
  std::vector<double> values_;
  std::vector<std::uint16_t> first_ = std::vector<std::uint16_t>(kPixels);
  std::vector<std::uint16_t> second_ = std::vector<std::uint16_t>(kPixels);
  std::uint64_t frame_number_ = 0;
};

/// Slope of the straight line closest to variance against mean below `highest`. A variance is known the worse the
/// larger it is: each point has the weight 1 / variance².
double Slope(const std::vector<TransferPoint>& points, double highest) {
  double weights = 0.0;
  double means = 0.0;
  double variances = 0.0;
  double squares = 0.0;
  double products = 0.0;
  for (const TransferPoint& point : points) {
    if (point.mean > highest || !(point.variance > 0.0)) continue;
    const double weight = 1.0 / (point.variance * point.variance);
    weights += weight;
    means += weight * point.mean;
    variances += weight * point.variance;
    squares += weight * point.mean * point.mean;
    products += weight * point.mean * point.variance;
  }
  const double determinant = weights * squares - means * means;
  const double slope = determinant > 0.0 ? (weights * products - means * variances) / determinant : 0.0;
  return slope > 0.0 ? slope : std::numeric_limits<double>::quiet_NaN();
}

}  // namespace

PhotonTransfer MeasurePhotonTransfer(const DetectorConfig& config) {
  if (config.electrons_per_unit == 0.0) {
    throw std::runtime_error("electrons_per_unit is 0: no light becomes electrons, and there is no photon transfer");
  }
  constexpr int kHalvings = 16;    // of the light, from full pixels down
  constexpr double kBeyond = 1.5;  // times the light of full pixels
  constexpr double kLinear = 0.5;  // of the largest mean
  FlatField flat_field(config);
  PhotonTransfer transfer;
  transfer.dark = flat_field.ExposePair(0.0);
  const double brightest = kBeyond * Fullness(config);
  double highest = 0.0;
  for (int step = 2 * kHalvings; step >= 0; --step) {
    TransferPoint point = flat_field.ExposePair(brightest * std::exp2(-0.5 * step));
    point.mean -= transfer.dark.mean;
    highest = std::max(highest, point.mean);
    transfer.points.push_back(point);
  }
  transfer.excess = config.em_gain > 1.0 ? 2.0 : 1.0;
  transfer.gain = Slope(transfer.points, kLinear * highest) / transfer.excess;
  transfer.dark_noise = std::sqrt(transfer.dark.variance) / transfer.gain;
  transfer.saturation = highest / transfer.gain;
  return transfer;
}

}  // namespace quen::workbench
