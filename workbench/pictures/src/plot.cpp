#include "workbench/pictures/src/plot.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <optional>
#include <utility>

namespace quen::workbench {
namespace {

constexpr double kLegendGap = 20.0;      // between the box and its legend
constexpr double kLegendStroke = 38.0;   // from its left end to the name
constexpr double kFirstInLegend = 20.0;  // from the top of the box to the first name
constexpr double kLegendStep = 26.0;     // from one name to the next

constexpr std::array<double, 3> kRound = {1.0, 2.0, 5.0};

void Line(cairo_t* cr, double x1, double y1, double x2, double y2) {
  cairo_move_to(cr, x1, y1);
  cairo_line_to(cr, x2, y2);
  cairo_stroke(cr);
}

/// Points of a curve that lie in the same column of pixels. A stroke shows no more of them than their extremes, and
/// Cairo takes seconds for a hundred thousand points.
struct PixelColumn {
  double x;
  double top;
  double bottom;
  double last;
};

void LineThrough(cairo_t* cr, const PixelColumn& column) {
  cairo_line_to(cr, column.x, column.top);
  if (column.top == column.bottom) return;
  cairo_line_to(cr, column.x, column.bottom);
  cairo_line_to(cr, column.x, column.last);
}

/// A round number, thousands without an exponent.
std::string Tick(double value) { return fmt::format("{:.4g}", value); }

}  // namespace

void Range::Hold(double value) {
  if (!std::isfinite(value)) return;
  lowest = std::min(lowest, value);
  highest = std::max(highest, value);
}

double Scale::Place(double value) const {
  if (!is_logarithmic) return std::clamp((value - first) / (last - first), 0.0, 1.0);
  const double length = std::log(last) - std::log(first);
  return value > first && length > 0.0 ? std::min((std::log(value) - std::log(first)) / length, 1.0) : 0.0;
}

Scale LinearScale(double largest) {
  constexpr double kSmallest = 1e-300;  // whose ticks are numbers, too
  constexpr double kFewest = 4.0;       // ticks
  const double last = std::max(largest, kSmallest);
  Scale scale = {0.0, last, false, {}};
  double step = std::pow(10.0, std::floor(std::log10(last)));
  for (const double digit : {5.0, 2.0, 1.0}) {
    if (last / step >= kFewest) break;
    step = digit / 10.0 * std::pow(10.0, std::floor(std::log10(last)));
  }
  const int steps = static_cast<int>(last / step * (1.0 + 1e-9));
  for (int k = 0; k <= steps; ++k) scale.ticks.push_back(k * step);
  return scale;
}

Scale LogarithmicScale(const Range& range, double smallest) {
  constexpr double kAir = 1.25;
  constexpr int kMostDecades = 12;  // with a tick each
  Scale scale = {std::clamp(range.lowest, smallest, std::numeric_limits<double>::max()) / kAir,
                 std::min(std::max(range.highest, smallest), std::numeric_limits<double>::max() / kAir) * kAir,
                 true,
                 {}};
  const int first_decade = static_cast<int>(std::floor(std::log10(scale.first)));
  const int last_decade = static_cast<int>(std::floor(std::log10(scale.last)));
  const int step = (last_decade - first_decade) / kMostDecades + 1;
  const bool is_wide = std::log10(scale.last) - std::log10(scale.first) > 3.0;
  for (int decade = first_decade; decade <= last_decade; decade += step) {
    for (const double digit : kRound) {
      const double tick = digit * std::pow(10.0, decade);
      if (tick < scale.first || tick > scale.last || (is_wide && digit != 1.0)) continue;
      scale.ticks.push_back(tick);
    }
  }
  return scale;
}

std::string NotFinite(std::ptrdiff_t lost) { return lost > 0 ? fmt::format(" ({} not finite)", lost) : ""; }

std::string NotFinite(std::size_t count, const std::function<double(std::size_t)>& value) {
  std::ptrdiff_t lost = 0;
  for (std::size_t k = 0; k < count; ++k) lost += std::isfinite(value(k)) ? 0 : 1;
  return NotFinite(lost);
}

Plot::Plot(cairo_t* cr, const Box& box, Scale x, Scale y) : cr_(cr), box_(box), x_(std::move(x)), y_(std::move(y)) {}

void Plot::DrawGrid(const std::string& title) const {
  Use(cr_, kGrid);
  cairo_set_line_width(cr_, 1.0);
  for (const double tick : y_.ticks) Line(cr_, box_.left, Y(tick), box_.left + box_.width, Y(tick));
  for (const double tick : x_.ticks) Line(cr_, X(tick), box_.top, X(tick), box_.top + box_.height);
  DrawFrame(title);
}

void Plot::DrawFrame(const std::string& title) const {
  Use(cr_, kInk);
  cairo_set_line_width(cr_, 1.0);
  cairo_rectangle(cr_, box_.left, box_.top, box_.width, box_.height);
  cairo_stroke(cr_);
  for (const double tick : y_.ticks) WriteBefore(cr_, box_.left - 8.0, Y(tick) + 5.0, Tick(tick));
  for (const double tick : x_.ticks) WriteAround(cr_, X(tick), box_.top + box_.height + 20.0, Tick(tick));
  Write(cr_, box_.left, box_.top - kTitleAbove, title);
}

void Plot::DrawCurve(const Colour& colour, std::size_t count, const std::function<double(std::size_t)>& x,
                     const std::function<double(std::size_t)>& y) const {
  Use(cr_, colour);
  cairo_new_path(cr_);  // text leaves a point
  std::size_t points = 0;
  std::optional<PixelColumn> column;
  for (std::size_t k = 0; k < count; ++k) {
    if (!std::isfinite(x(k)) || !std::isfinite(y(k))) continue;
    ++points;
    const double place_x = X(x(k));
    const double place_y = Y(y(k));
    if (column && std::floor(column->x) == std::floor(place_x)) {
      *column = {column->x, std::min(column->top, place_y), std::max(column->bottom, place_y), place_y};
    } else {
      if (column) LineThrough(cr_, *column);
      column = {place_x, place_y, place_y, place_y};
    }
  }
  if (points == 1) return DrawDots(colour, count, x, y);
  if (column) LineThrough(cr_, *column);
  cairo_stroke(cr_);
}

void Plot::DrawDots(const Colour& colour, std::size_t count, const std::function<double(std::size_t)>& x,
                    const std::function<double(std::size_t)>& y) const {
  constexpr double kRadius = 3.5;
  Use(cr_, colour);
  for (std::size_t k = 0; k < count; ++k) {
    if (!std::isfinite(x(k)) || !std::isfinite(y(k))) continue;
    cairo_new_path(cr_);
    cairo_arc(cr_, X(x(k)), Y(y(k)), kRadius, 0.0, 2.0 * std::numbers::pi);
    cairo_fill(cr_);
  }
}

void Plot::DrawLegend(const Colour& colour, std::size_t place, const std::string& name) const {
  const double left = box_.left + box_.width + kLegendGap;
  const double y = box_.top + kFirstInLegend + kLegendStep * static_cast<double>(place);
  Use(cr_, colour);
  Line(cr_, left, y - 5.0, left + 30.0, y - 5.0);
  Use(cr_, kInk);
  Write(cr_, left + kLegendStroke, y, name);
}

double HeightOfLegend(std::size_t names) { return kFirstInLegend + kLegendStep * static_cast<double>(names); }

int WidthWithLegend(const Box& box, const std::vector<std::string>& names) {
  constexpr double kWidest = 2000.0;
  const Canvas measure(1, 1);
  double longest = 0.0;
  for (const std::string& name : names) longest = std::max(longest, Advance(measure.Cairo(), name));
  const double width = box.left + box.width + kLegendGap + kLegendStroke + longest + kLegendGap;
  return static_cast<int>(std::min(std::ceil(width), kWidest));
}

}  // namespace quen::workbench
