#include "centroiders/correlation.hpp"

#include <algorithm>
#include <array>
#include <cmath>

#include "centroiders/src/brightness.hpp"
#include "centroiders/src/checks.hpp"
#include "centroiders/src/correlate.hpp"
#include "centroiders/src/moments.hpp"
#include "shssim/spot.hpp"

namespace quen::centroiders {
namespace {

/// @param name  of what is made of it
void RequireSize(const std::string& name, std::size_t size) {
  RequireWithin(name + ": size", static_cast<double>(size), CorrelationLimits::kSize);
  if (size % 2 == 0) throw std::invalid_argument(name + ": size must be odd, found " + std::to_string(size));
}

/// The largest of them that is in the region; the pixel itself where no neighbour exceeds it.
Position LargestOf(const Neighbours& c, Position at, const Pixels& pixels) {
  Position largest = at;
  double most = c[1][1];
  for (std::size_t row = 0; row < 3; ++row) {
    for (std::size_t column = 0; column < 3; ++column) {
      const Position position = {at.x + static_cast<std::ptrdiff_t>(column) - 1,
                                 at.y + static_cast<std::ptrdiff_t>(row) - 1};
      const bool inside = position.x >= 0 && position.x < static_cast<std::ptrdiff_t>(pixels.width) &&
                          position.y >= 0 && position.y < static_cast<std::ptrdiff_t>(pixels.height);
      if (!inside || !(c.at(row).at(column) > most)) continue;
      largest = position;
      most = c.at(row).at(column);
    }
  }
  return largest;
}

/// Where the parabola through the logarithms of three values has its top, from the middle one: at most a pixel, for at
/// the region's edge an outer value may be the largest.
double Vertex(double before, double middle, double after) {
  if (!(before > 0.0 && after > 0.0)) return 0.0;
  const double rise = std::log(middle / before);
  const double fall = std::log(middle / after);
  return rise + fall > 0.0 ? std::clamp(0.5 * (rise - fall) / (rise + fall), -1.0, 1.0) : 0.0;
}

/// Where the top is, from the middle one of the values: of the parabolas, or of the surface.
Point TopOf(const Neighbours& c, CorrelationTop top) {
  const Point of_parabolas = {Vertex(c[1][0], c[1][1], c[1][2]), Vertex(c[0][1], c[1][1], c[2][1])};
  const auto is_dark = [](const auto& row) {
    return std::ranges::any_of(row, [](double value) { return !(value > 0); });
  };
  if (top == CorrelationTop::kOfParabolas || std::ranges::any_of(c, is_dark)) return of_parabolas;
  const double left = std::log(c[1][0] / c[1][1]);
  const double right = std::log(c[1][2] / c[1][1]);
  const double below = std::log(c[0][1] / c[1][1]);
  const double above = std::log(c[2][1] / c[1][1]);
  const double xx = right + left;
  const double yy = above + below;
  const double xy = 0.25 * std::log(c[2][2] / c[2][0] * c[0][0] / c[0][2]);
  const double determinant = xx * yy - xy * xy;
  if (!(xx < 0.0 && determinant > 0.0)) return of_parabolas;
  const Point slope = {0.5 * (right - left), 0.5 * (above - below)};
  const Point of_surface = {(xy * slope.y - yy * slope.x) / determinant, (xy * slope.x - xx * slope.y) / determinant};
  return std::max(std::abs(of_surface.x), std::abs(of_surface.y)) <= 1.0 ? of_surface : of_parabolas;
}

}  // namespace

std::vector<double> GaussianTemplate(std::size_t size, double fwhm) {
  RequireSize("GaussianTemplate", size);
  RequireWithin("GaussianTemplate: fwhm", fwhm, CorrelationLimits::kFwhm);
  const double sigma = fwhm / shssim::kFwhmPerSigma;
  const double middle = 0.5 * static_cast<double>(size - 1);
  std::vector<double> values;
  for (std::size_t y = 0; y < size; ++y) {
    for (std::size_t x = 0; x < size; ++x) {
      const double u = (static_cast<double>(x) - middle) / sigma;
      const double v = (static_cast<double>(y) - middle) / sigma;
      values.push_back(std::exp(-0.5 * (u * u + v * v)));
    }
  }
  return values;
}

Correlation::Correlation(const CorrelationConfig& config) : Correlation(config, CorrelationTop::kOfParabolas) {}

Correlation::Correlation(const CorrelationConfig& config, CorrelationTop top)
    : size_(static_cast<std::uint32_t>(config.size)), top_(top), template_(config.template_values) {
  RequireSize("Correlation", config.size);
  if (template_.empty()) template_ = GaussianTemplate(size_, shssim::kSpotFwhm);
  const std::size_t count = std::size_t{size_} * size_;
  if (template_.size() != count) {
    throw std::invalid_argument("Correlation: template_values must be " + std::to_string(count) + " numbers, found " +
                                std::to_string(template_.size()) + "; size is its side");
  }
  for (std::size_t k = 0; k < template_.size(); ++k) {
    if (!std::isfinite(template_[k])) {
      throw std::invalid_argument("Correlation: template_values[" + std::to_string(k) + "] must be finite, found " +
                                  InDigits(template_[k]));
    }
  }
  if (std::ranges::all_of(template_, [](double value) { return value == 0.0; })) {
    throw std::invalid_argument("Correlation: template_values must be other than 0 somewhere, found " +
                                std::to_string(template_.size()) + " zeros; leave them out for the drawn spot");
  }
  template_ = Template::Padded(template_, size_);
}

void Correlation::Measure(const Pixels& pixels, const Point& reference) {
  const common::simd::Level level = common::simd::Best();
  flux = static_cast<double>(MomentsAbove(level, pixels, kEveryPixel).sum);

  const auto around = [&](Position at) { return CorrelateAround(level, pixels, {template_, size_}, at); };
  const Point start = BrightestPoint(level, pixels);
  Position at = {static_cast<std::ptrdiff_t>(start.x), static_cast<std::ptrdiff_t>(start.y)};
  Neighbours c = around(at);
  for (Position next = LargestOf(c, at, pixels); next != at; next = LargestOf(c, at, pixels)) {
    at = next;
    c = around(at);
  }
  if (!(c[1][1] > 0.0)) return;
  const Point top = TopOf(c, top_);
  x = static_cast<double>(at.x) + top.x - reference.x;
  y = static_cast<double>(at.y) + top.y - reference.y;
}

}  // namespace quen::centroiders
