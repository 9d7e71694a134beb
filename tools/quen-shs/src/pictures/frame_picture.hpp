#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "quen_image_processing/roi/roi.hpp"
#include "tools/quen-shs/src/files/frame_file.hpp"
#include "tools/quen-shs/src/pictures/canvas.hpp"
#include "tools/quen-shs/src/pictures/plot.hpp"
#include "tools/quen-shs/src/pictures/stretch.hpp"
#include "tools/quen-shs/src/sensor/displacements.hpp"

namespace quen_shs {

/// Sub-apertures to be drawn on a frame or a plane, with arrows for displacements if there are any.
struct Overlay {
  std::vector<quen::image_processing::Roi> rois;
  std::vector<std::uint8_t> used;
  std::optional<Displacements> displacements;

  /// Whether sub-aperture `i` is used; all are where there are no flags.
  [[nodiscard]] bool IsUsed(std::size_t i) const { return used.empty() || (i < used.size() && used[i] != 0); }

  /// Whether its displacement and its reference are finite, where there are displacements.
  [[nodiscard]] bool HasArrow(std::size_t i) const;
};

/// What a simulator has measured.
Overlay OverlayOf(const quen::shssim::ShsSimulator& simulator);

/// Magnification that makes the root mean square displacement of the used sub-apertures a typical arrow; 1 if there is
/// nothing to show.
double ArrowMagnification(const Overlay& overlay);

/// The magnification in words, and how many used sub-apertures have no arrow.
std::string ArrowLegend(const Overlay& overlay);

/// From a detector's coordinates to a picture's: row 0 at the bottom, a pixel of the detector a pixel of the picture.
class Plane {
 public:
  /// @param left, top  corner of the detector in the picture
  Plane(cairo_t* cr, double left, double top, std::size_t height)
      : cr_(cr), left_(left), bottom_(top + static_cast<double>(height)) {}

  void DrawPixels(const Frame& frame, const Stretch& stretch) const;
  void DrawOutlines(const Overlay& overlay) const;
  /// Arrows for the displacements of the used sub-apertures, cut to the longest that stays inside a region.
  void DrawArrows(const Overlay& overlay, double magnification) const;
  /// Fills the region of a sub-aperture.
  void Fill(const quen::image_processing::Roi& roi, const Colour& colour) const;

 private:
  [[nodiscard]] double X(double column) const { return left_ + column + 0.5; }
  [[nodiscard]] double Y(double row) const { return bottom_ - (row + 0.5); }
  void Arrow(double x, double y, double dx, double dy) const;

  cairo_t* cr_;
  double left_;
  double bottom_;
};

/// Draws a frame, and sub-apertures on it if there are any. Returns a PNG file.
/// @throws std::runtime_error  there is no memory for it
std::string DrawFrame(const Frame& frame, const Stretch& stretch, const std::optional<Overlay>& overlay,
                      const std::string& title);

}  // namespace quen_shs
