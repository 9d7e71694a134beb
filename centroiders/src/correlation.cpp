#include "centroiders/correlation.hpp"

#include <algorithm>
#include <array>
#include <cmath>

#include "centroiders/drawn_spot.hpp"
#include "centroiders/src/brightness.hpp"
#include "centroiders/src/checks.hpp"
#include "centroiders/src/correlate.hpp"
#include "centroiders/src/moments.hpp"

namespace quen::centroiders {
namespace {

std::vector<double> DrawnSpot(std::size_t size) {
  std::vector<double> values;
  const double middle = 0.5 * static_cast<double>(size - 1);
  for (std::size_t y = 0; y < size; ++y) {
    for (std::size_t x = 0; x < size; ++x) {
      const double u = static_cast<double>(x) - middle;
      const double v = static_cast<double>(y) - middle;
      values.push_back(std::exp(-0.5 * (u * u + v * v) / (kSpotSigma * kSpotSigma)));
    }
  }
  return values;
}

/// Where the parabola through the logarithms of three values, the largest in the middle, has its top, from the middle.
double Top(double before, double middle, double after) {
  if (!(before > 0.0 && after > 0.0)) return 0.0;
  const double rise = std::log(middle / before);
  const double fall = std::log(middle / after);
  return rise + fall > 0.0 ? 0.5 * (rise - fall) / (rise + fall) : 0.0;
}

}  // namespace

Correlation::Correlation(const CorrelationConfig& config) : size_(config.size), template_(config.template_values) {
  RequireInRange("Correlation: size", static_cast<double>(size_), 3.0, 63.0);
  if (size_ % 2 == 0) throw std::invalid_argument("Correlation: size must be odd, found " + std::to_string(size_));
  if (template_.empty()) template_ = DrawnSpot(size_);
  if (template_.size() != size_ * size_) {
    throw std::invalid_argument("Correlation: template_values must be " + std::to_string(size_ * size_) +
                                " numbers, found " + std::to_string(template_.size()));
  }
  for (const double value : template_) {
    if (!std::isfinite(value)) {
      throw std::invalid_argument("Correlation: template_values must be finite, found " + Text(value));
    }
  }
  if (std::ranges::all_of(template_, [](double value) { return value == 0.0; })) {
    throw std::invalid_argument("Correlation: template_values must not all be zero, found nothing else");
  }
}

void Correlation::Measure(const Pixels& pixels, const Point& reference) {
  const common::simd::Level level = common::simd::Best();
  flux = static_cast<double>(MomentsAbove(level, pixels, kEveryPixel).sum);

  const Point start = BrightestPoint(level, pixels);
  auto column = static_cast<std::ptrdiff_t>(start.x);
  auto row = static_cast<std::ptrdiff_t>(start.y);
  std::array<std::array<double, 3>, 3> c{};  // around (column, row), rows first
  for (bool climbs = true; climbs;) {
    std::ptrdiff_t best_column = 0;
    std::ptrdiff_t best_row = 0;
    double best = Correlate(level, pixels, template_, size_, column, row);
    for (std::ptrdiff_t v = -1; v <= 1; ++v) {
      for (std::ptrdiff_t u = -1; u <= 1; ++u) {
        const double value = Correlate(level, pixels, template_, size_, column + u, row + v);
        c.at(static_cast<std::size_t>(v + 1)).at(static_cast<std::size_t>(u + 1)) = value;
        const bool inside = column + u >= 0 && column + u < static_cast<std::ptrdiff_t>(pixels.width) && row + v >= 0 &&
                            row + v < static_cast<std::ptrdiff_t>(pixels.height);
        if (inside && value > best) {
          best = value;
          best_column = u;
          best_row = v;
        }
      }
    }
    climbs = best_column != 0 || best_row != 0;
    column += best_column;
    row += best_row;
  }
  if (!(c[1][1] > 0.0)) return;
  x = static_cast<double>(column) + Top(c[1][0], c[1][1], c[1][2]) - reference.x;
  y = static_cast<double>(row) + Top(c[0][1], c[1][1], c[2][1]) - reference.y;
}

}  // namespace quen::centroiders
