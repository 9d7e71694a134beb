#pragma once

#include <string>
#include <vector>

#include "workbench/sensor/displacements.hpp"

/// @file
/// Wavefronts by name, which do not depend on the modes of the calibration. Their gradients move the spots; where in
/// the pupil a sub-aperture is follows from its reference point.

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

/// Displacements of the used spots along the gradient of the shape, and of 0 for the others. The shape's unit circle is
/// the one around the references of the used sub-apertures.
/// @throws std::runtime_error  there is no such circle
Displacements Shape(const NamedShape& named, const quen::shssim::ShsSimulator& simulator);

}  // namespace quen::workbench
