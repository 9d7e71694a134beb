#pragma once

#include <vector>

#include "workbench/pictures/src/canvas.hpp"
#include "workbench/pictures/stretch.hpp"
#include "workbench/sensor/dimensions.hpp"
#include "workbench/sensor/frame_file.hpp"
#include "workbench/sensor/overlay.hpp"

namespace quen::workbench {

inline constexpr double kLongestArrow = 11.0;  ///< pixels of the picture; stays inside a region

/// The length that a part of all, 0 to 1, are not above; the longest where that is 0; 0 of none.
double LongLength(std::vector<double> lengths, double part);

/// From a detector's coordinates to a picture's: row 0 at the bottom, a pixel of the detector a pixel of the picture.
class Plane {
 public:
  /// @param left, top  corner of the detector in the picture
  Plane(cairo_t* cr, double left, double top, std::size_t height)
      : cr_(cr), left_(left), bottom_(top + static_cast<double>(height)) {}

  void DrawPixels(const Frame& frame, const Stretch& stretch) const;
  void DrawOutlines(const Overlay& overlay) const;
  /// Arrows for the displacements of the used sub-apertures; longer ones than the longest are cut to it, and red.
  /// A ring for no displacement.
  void DrawArrows(const Overlay& overlay, double magnification) const;
  /// Fills the region of a sub-aperture.
  void Fill(const Roi& roi, const Colour& colour) const;

 private:
  [[nodiscard]] double X(double column) const { return left_ + column + 0.5; }
  [[nodiscard]] double Y(double row) const { return bottom_ - (row + 0.5); }
  void Arrow(double x, double y, double dx, double dy) const;
  void Ring(double x, double y) const;

  cairo_t* cr_;
  double left_;
  double bottom_;
};

}  // namespace quen::workbench
