#pragma once

#include <cstddef>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "workbench/pictures/src/canvas.hpp"

namespace quen::workbench {

/// A rectangle on a picture, pixels from its top left corner.
struct Box {
  double left;
  double top;
  double width;
  double height;
};

/// The least and the greatest of values; those that are not finite do not count.
struct Range {
  double lowest = std::numeric_limits<double>::infinity();
  double highest = -std::numeric_limits<double>::infinity();

  void Hold(double value);
};

/// Values along an axis, and where each lies between its ends.
struct Scale {
  double first;
  double last;
  bool is_logarithmic = false;
  std::vector<double> ticks;

  /// 0 at the first value, 1 at the last; values outside are drawn at the ends.
  [[nodiscard]] double Place(double value) const;
};

/// A linear scale from 0 to `largest`, finite and above 0, with ticks at round numbers.
Scale LinearScale(double largest);

/// A logarithmic scale that holds all of a range above `smallest`, and that value if the range is empty. A dozen ticks
/// at most, at round numbers.
Scale LogarithmicScale(const Range& range, double smallest);

/// A remark on what is left out of a picture, " (3 not finite)" for instance; empty if nothing is.
std::string NotFinite(std::ptrdiff_t lost);
/// The same for the values of a curve.
std::string NotFinite(std::size_t count, const std::function<double(std::size_t)>& value);

/// How wide a picture is in which names stand in the legend beside a box, pixels, but for very long names.
int WidthWithLegend(const Box& box, const std::vector<std::string>& names);

/// How far the legend goes down from the top of its box, pixels.
double HeightOfLegend(std::size_t names);

/// Curves in a box with a grid.
class Plot {
 public:
  Plot(cairo_t* cr, const Box& box, Scale x, Scale y);

  /// Draws frame, ticks and a title above; with a grid, or without.
  void DrawGrid(const std::string& title) const;
  void DrawFrame(const std::string& title) const;

  /// A curve through points, or a dot on a single one; those that are not finite are left out. The caller says so by
  /// NotFinite.
  void DrawCurve(const Colour& colour, std::size_t count, const std::function<double(std::size_t)>& x,
                 const std::function<double(std::size_t)>& y) const;

  /// A dot on each of the points.
  void DrawDots(const Colour& colour, std::size_t count, const std::function<double(std::size_t)>& x,
                const std::function<double(std::size_t)>& y) const;

  /// A line of the legend beside the box: a stroke, as curves are drawn now, and a name. Places are counted from the
  /// top.
  void DrawLegend(const Colour& colour, std::size_t place, const std::string& name) const;

 private:
  [[nodiscard]] double X(double value) const { return box_.left + box_.width * x_.Place(value); }
  [[nodiscard]] double Y(double value) const { return box_.top + box_.height * (1.0 - y_.Place(value)); }

  cairo_t* cr_;
  Box box_;
  Scale x_;
  Scale y_;
};

}  // namespace quen::workbench
