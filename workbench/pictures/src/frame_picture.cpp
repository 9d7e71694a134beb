#include "workbench/pictures/frame_picture.hpp"

#include <algorithm>
#include <cmath>
#include <vector>

#include "workbench/pictures/src/plane.hpp"
#include "workbench/pictures/src/plot.hpp"

namespace quen::workbench {
namespace {

constexpr double kTypicalArrow = 5.0;  // pixels of the frame
constexpr double kShortest = 1e-300;   // pixels; shorter ones are too short to be enlarged

constexpr double kLevels = 65535.0;  // of a frame's pixels, which a map's finite elements become

Range RangeOf(const std::vector<double>& map) {
  Range range;
  for (const double element : map) range.Hold(element);
  return range.lowest <= range.highest ? range : Range{0.0, 0.0};
}

std::uint16_t LevelOf(double element, const Range& range) {
  const double half = 0.5 * range.highest - 0.5 * range.lowest;  // the whole may be more than a number holds
  if (!std::isfinite(element) || !(half > 0.0)) return 0;
  return static_cast<std::uint16_t>(kLevels * ((0.5 * element - 0.5 * range.lowest) / half));
}

}  // namespace

double ArrowMagnification(const Overlay& overlay) {
  std::vector<double> lengths;
  for (std::size_t i = 0; i < overlay.rois.size(); ++i) {
    if (!overlay.IsUsed(i) || !overlay.HasArrow(i)) continue;
    lengths.push_back(std::hypot(overlay.displacements->x[i], overlay.displacements->y[i]));
  }
  const double longest = lengths.empty() ? 0.0 : std::ranges::max(lengths);
  if (!(longest > 0.0)) return 1.0;
  double sum = 0.0;  // of squares over the longest one's, which may be more than a number holds
  for (const double length : lengths) sum += (length / longest) * (length / longest);
  const double rms = longest * std::sqrt(sum / static_cast<double>(lengths.size()));
  return kTypicalArrow / std::max(rms, kShortest);
}

std::string ArrowLegend(const Overlay& overlay) {
  std::ptrdiff_t lost = 0;
  for (std::size_t i = 0; i < overlay.rois.size(); ++i) lost += overlay.IsUsed(i) && !overlay.HasArrow(i) ? 1 : 0;
  return Short(ArrowMagnification(overlay)) + " times enlarged" + NotFinite(overlay.displacements ? lost : 0);
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
  Write(canvas.Cairo(), kMargin, kTop - kTitleAbove, title);
  return canvas.Png();
}

std::string DrawMap(const std::vector<double>& map, const std::string& name) {
  const Range range = RangeOf(map);
  Frame frame = {kFrameWidth, kFrameHeight, std::vector<std::uint16_t>(map.size()), true};
  std::ranges::transform(map, frame.pixels.begin(), [&](double element) { return LevelOf(element, range); });
  Stretch stretch = ZScaleStretch(frame);
  if (stretch.white - stretch.black <= 1.0) stretch = {0.0, kLevels, Stretch::Curve::kLinear};
  const auto value = [&](double level) { return Short(std::lerp(range.lowest, range.highest, level / kLevels)); };
  return DrawFrame(frame, stretch, std::nullopt,
                   name + ", row 0 at the bottom, from " + value(stretch.black) + " (black) to " +
                       value(stretch.white) + " (white)" +
                       NotFinite(std::ranges::count_if(map, [](double element) { return !std::isfinite(element); })));
}

}  // namespace quen::workbench
