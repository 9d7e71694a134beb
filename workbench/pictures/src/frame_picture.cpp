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

}  // namespace quen::workbench
