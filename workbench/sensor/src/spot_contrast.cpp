#include "workbench/sensor/spot_contrast.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "centroiders/drawn_spot.hpp"
#include "common/statistics/quantile.hpp"

namespace quen::workbench {
namespace {

constexpr std::size_t kReach = 4;  // two deviations of the drawn spot
constexpr std::size_t kSide = 2 * kReach + 1;

std::array<double, kSide> Weights() {
  std::array<double, kSide> weights{};
  for (std::size_t k = 0; k < kSide; ++k) {
    const double d = (static_cast<double>(k) - static_cast<double>(kReach)) / quen::centroiders::kSpotSigma;
    weights.at(k) = std::exp(-0.5 * d * d);
  }
  return weights;
}

/// A region's light, row by row.
struct Region {
  std::size_t width;
  std::size_t height;
  std::vector<double> light;
};

/// Less its median; 0 where a pixel does not count.
Region RegionOf(const std::vector<double>& values, std::size_t width, const Roi& roi) {
  Region region = {std::size_t{roi.x_up} - roi.x_low, std::size_t{roi.y_up} - roi.y_low, {}};
  for (std::size_t row = roi.y_low; row < roi.y_up; ++row) {
    for (std::size_t column = roi.x_low; column < roi.x_up; ++column) {
      region.light.push_back(values[column + width * row]);
    }
  }
  std::vector<double> counted = region.light;
  std::erase_if(counted, [](double value) { return std::isnan(value); });
  const double median = common::LowerMedian(counted);
  for (double& value : region.light) value = std::isnan(value) ? 0.0 : value - median;
  return region;
}

/// Of all places whose weights are within the region; the weights are a product of one for columns and one for rows.
double BestPlace(const Region& region) {
  static const std::array<double, kSide> weights = Weights();
  const std::size_t columns = region.width - kSide + 1;
  const std::size_t rows = region.height - kSide + 1;
  std::vector<double> along_rows(columns * region.height, 0.0);
  for (std::size_t row = 0; row < region.height; ++row) {
    for (std::size_t k = 0; k < kSide; ++k) {
      for (std::size_t column = 0; column < columns; ++column) {
        along_rows[column + columns * row] += weights[k] * region.light[column + k + region.width * row];
      }
    }
  }
  double best = 0.0;
  for (std::size_t row = 0; row < rows; ++row) {
    for (std::size_t column = 0; column < columns; ++column) {
      double sum = 0.0;
      for (std::size_t k = 0; k < kSide; ++k) sum += weights[k] * along_rows[column + columns * (row + k)];
      best = std::max(best, sum);
    }
  }
  return best;
}

}  // namespace

void SpotContrast::Add(const std::vector<double>& values, std::size_t width, const Roi& roi) {
  if (roi.x_up < roi.x_low + kSide || roi.y_up < roi.y_low + kSide) return;
  Region region = RegionOf(values, width, roi);
  found_ += BestPlace(region);
  std::ranges::shuffle(region.light, random_);
  by_chance_ += BestPlace(region);
}

double SpotContrast::Ratio() const {
  return by_chance_ > 0.0 ? found_ / by_chance_ : std::numeric_limits<double>::infinity();
}

}  // namespace quen::workbench
