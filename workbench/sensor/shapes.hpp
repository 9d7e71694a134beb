#pragma once

#include <string>
#include <vector>

#include "workbench/sensor/displacements.hpp"

/// @file
/// Wavefronts by name, whatever the modes of the calibration: their gradients at the sub-apertures, whose places in the
/// pupil follow from their reference points.

namespace quen::workbench {

/// Names of all shapes.
std::vector<std::string> ShapeNames();

/// A shape and how far it moves spots.
struct NamedShape {
  std::string name;
  double longest;  ///< displacement, pixels
};

/// Text "NAME:PIXELS".
/// @throws std::invalid_argument  not such a text, or no such shape
NamedShape ParseShape(const std::string& text);

/// Displacements of the used spots, the others stay: along the gradient of the shape. The unit circle is the one around
/// the used sub-apertures' references.
/// @throws std::runtime_error  there is no such circle
Displacements Shape(const NamedShape& named, const quen::shssim::ShsSimulator& simulator);

}  // namespace quen::workbench
