#include "workbench/pictures/frame_picture.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "workbench/pictures/src/plane.hpp"
#include "workbench/pictures/src/plot.hpp"
#include "workbench/sensor/dimensions.hpp"

namespace quen::workbench {
namespace {

constexpr double kShortest = 1e-300;  // pixels; shorter ones are too short to be enlarged
constexpr double kLong = 0.95;        // of the arrows are no longer than the longest that is drawn

/// What is finite of a map, in units of its largest magnitude, so that differences are numbers, too; a 0 where nothing
/// is.
std::vector<double> FiniteOf(const std::vector<double>& map, double unit) {
  std::vector<double> values;
  for (const double element : map) {
    if (std::isfinite(element)) values.push_back(element / unit);
  }
  if (values.empty()) values.push_back(0.0);
  return values;
}

double LargestMagnitude(const std::vector<double>& map) {
  double largest = 0.0;
  for (const double element : map) largest = std::isfinite(element) ? std::max(largest, std::abs(element)) : largest;
  return largest > 0.0 ? largest : 1.0;
}

/// That of the longest arrow, pixels of the detector; 0 where nothing is displaced.
double LongestDisplacement(const Overlay& overlay) {
  std::vector<double> lengths;
  for (std::size_t i = 0; i < overlay.rois.size(); ++i) {
    if (!overlay.IsUsed(i) || !overlay.HasArrow(i)) continue;
    lengths.push_back(std::hypot(overlay.displacements->x[i], overlay.displacements->y[i]));
  }
  return LongLength(lengths, kLong);
}

}  // namespace

double ArrowMagnification(const Overlay& overlay) {
  const double longest = LongestDisplacement(overlay);
  return longest > 0.0 ? kLongestArrow / std::max(longest, kShortest) : 1.0;
}

std::string ArrowLegend(const Overlay& overlay) {
  std::ptrdiff_t lost = 0;
  for (std::size_t i = 0; i < overlay.rois.size(); ++i) lost += overlay.IsUsed(i) && !overlay.HasArrow(i) ? 1 : 0;
  const double longest = LongestDisplacement(overlay);
  return (longest > 0.0 ? "the longest arrow is " + Short(std::max(longest, kShortest)) + " px, red: cut"
                        : "all zeros") +
         NotFinite(overlay.displacements ? lost : 0);
}

std::string DrawFrame(const Frame& frame, const Stretch& stretch, const std::optional<Overlay>& overlay,
                      const std::string& title) {
  const Canvas canvas(static_cast<int>(static_cast<double>(frame.width) + 2.0 * kMargin),
                      static_cast<int>(static_cast<double>(frame.height) + kTop + kMargin));
  const Plane plane(canvas.Cairo(), kMargin, kTop, frame.height);
  plane.DrawPixels(frame, stretch);
  if (overlay) {
    plane.DrawOutlines(*overlay);
    plane.DrawArrows(*overlay, ArrowMagnification(*overlay));
  }
  Use(canvas.Cairo(), kInk);
  Write(canvas.Cairo(), kMargin, kTop - kTitleAbove,
        title + NotFinite(std::ranges::count_if(frame.blank, [](std::uint8_t blank) { return blank != 0; })));
  return canvas.Png();
}

std::string DrawMap(const std::vector<double>& map, std::size_t width, const std::string& name) {
  constexpr double kLevels = 65535.0;  // of a frame's pixels
  const double unit = LargestMagnitude(map);
  const std::vector<double> values = FiniteOf(map, unit);
  Stretch stretch = ZScaleStretch(values);
  if (!(stretch.white > stretch.black)) {
    stretch.black = std::ranges::min(values);
    stretch.white = std::ranges::max(values);
  }
  Frame frame = {width, map.size() / width, std::vector<std::uint16_t>(map.size()), true};
  std::ranges::transform(map, frame.pixels.begin(), [&](double element) {
    const bool is_shown = std::isfinite(element) && stretch.white > stretch.black;
    return static_cast<std::uint16_t>(is_shown ? kLevels * stretch.Shade(element / unit) : 0.0);
  });
  return DrawFrame(frame, {0.0, kLevels, Stretch::Curve::kLinear}, std::nullopt,
                   name + ", row 0 at the bottom, from " + Short(unit * stretch.black) + " (black) to " +
                       Short(unit * stretch.white) + " (white)" +
                       NotFinite(std::ranges::count_if(map, [](double element) { return !std::isfinite(element); })));
}

}  // namespace quen::workbench
