#pragma once

#include <Eigen/Core>
#include <string>
#include <vector>

#include "workbench/pictures/src/plot.hpp"
#include "workbench/sensor/dimensions.hpp"
#include "workbench/sensor/overlay.hpp"

/// @file
/// Arrow maps: vectors at points of the detector, row 0 at the bottom. Of any numbers that a file may hold.

namespace quen::workbench {

/// What takes points of the detector into a box of a picture.
class DetectorMap {
 public:
  /// Onto the grid of these regions, with half a step around it.
  /// @param rois  at least one
  DetectorMap(const Box& box, const std::vector<Roi>& rois);
  /// Onto a square of the detector.
  DetectorMap(const Box& box, const Eigen::Vector2d& middle, double side);

  [[nodiscard]] Eigen::Vector2d operator()(const Eigen::Vector2d& point) const;
  [[nodiscard]] double Length(double pixels) const { return scale_ * pixels; }

  /// From one sub-aperture to the next, in the picture.
  [[nodiscard]] double Step() const { return step_; }

 private:
  Eigen::Vector2d corner_;  ///< of the box, at the bottom
  Eigen::Vector2d origin_;  ///< what of the detector is there
  double scale_;
  double step_ = 0.0;
};

/// The middle of a region along each axis: pixel centres are at integers.
Eigen::Vector2d Middle(const Roi& roi);

/// Vectors at the middles of regions.
struct VectorField {
  std::vector<Roi> rois;
  std::vector<Eigen::Vector2d> vectors;
};

/// A slope vector (y block, then x block) at the used sub-apertures.
VectorField SlopeField(const Overlay& overlay, const Eigen::VectorXd& slopes);

/// How far the references are from the middles of their regions.
VectorField OffsetField(const std::vector<Roi>& rois);

/// Draws arrows around their points, the larger ones as long as a step of the grid. A vector of zeros is a small ring,
/// one that is not finite a cross, and one that is much longer than almost all is cut, and red.
void DrawVectorField(cairo_t* cr, const DetectorMap& map, const VectorField& field);

/// What its signs are, in words.
inline constexpr const char* kArrowWords =
    "Arrows by each map's own scale, row 0 at the bottom; ring: zero, cross: not finite, red: cut";

/// "RMS 3.12, longest 7.3 px", "3 not finite, longest 7.3 px", or "all zeros".
std::string SizeWords(const VectorField& field, const std::string& unit);

/// Root mean square of the vectors' lengths; those that are not finite do not count.
double RmsLength(const VectorField& field);

}  // namespace quen::workbench
