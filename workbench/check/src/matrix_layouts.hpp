#pragma once

#include <optional>
#include <vector>

#include "workbench/check/calibration_content.hpp"
#include "workbench/check/src/layout.hpp"
#include "workbench/check/src/slope_space.hpp"

/// @file
/// Which layouts the two matrices are in, found without knowing the modes.
///
/// The slopes of any smooth wavefront are a gradient. In a wrong layout they are not, and the layout in which they are
/// is the right one. What a mirror image would do, the slopes alone cannot tell: a flipped sign and a list from the
/// other end make the same gradient of a mirrored wavefront, and both are given. The control matrix is made of the other
/// one's slopes, so where only one of the two is mistaken, the other one tells how.

namespace quen::workbench {

struct MatrixLayout {
  double as_it_stands = 0.0;     ///< share of the slopes' mean square that is a smooth gradient
  double put_right = 0.0;        ///< the same in the layouts below
  bool is_of_the_other = false;  ///< its slopes are those of the other matrix
  std::vector<Layout> layouts;   ///< one of these; none if the slopes are without order in all of them

  [[nodiscard]] bool IsRight() const { return !layouts.empty() && layouts.front() == Layout(); }
};

struct MatrixLayouts {
  MatrixLayout m2s;
  MatrixLayout cm;
};

/// @param gradients  of smooth surfaces, at the used sub-apertures
/// @param orders     of the list of used sub-apertures
MatrixLayouts FindLayouts(const CalibrationContent& content, const SlopeSpace& gradients,
                          const std::vector<ListOrder>& orders);

/// Usage flags of another pupil with which the slopes are much nearer to a gradient, if there are any.
std::optional<std::vector<std::uint8_t>> FlagsOfAnotherPupil(const CalibrationContent& content);

Matrix M2sPutRight(const Matrix& m2s, const Layout& layout, const std::vector<ListOrder>& orders);
Matrix CmPutRight(const Matrix& cm, const Layout& layout, const std::vector<ListOrder>& orders);

}  // namespace quen::workbench
