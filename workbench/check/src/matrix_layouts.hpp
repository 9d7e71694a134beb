#pragma once

#include <optional>
#include <vector>

#include "workbench/check/calibration_content.hpp"
#include "workbench/check/src/lattice.hpp"
#include "workbench/check/src/layout.hpp"
#include "workbench/check/src/slope_space.hpp"

/// @file
/// Which layouts the two matrices are in, found without knowing the modes.
///
/// The slopes of any smooth wavefront are a gradient. In a wrong layout they are not, and the layout in which they are
/// is the right one. What a mirror image would do, the slopes alone cannot tell: a flipped sign and a list from the
/// other end make the same gradient of a mirrored wavefront, and both are given. The control matrix is made of the
/// other one's slopes, so where only one of the two is mistaken, the other one tells how.

namespace quen::workbench {

struct MatrixLayout {
  double as_it_stands = 0.0;         ///< share of the slopes' mean square that is a smooth gradient
  double put_right = 0.0;            ///< the same in the layouts below
  bool is_of_the_other = false;      ///< its slopes are those of the other matrix
  std::vector<Layout> layouts = {};  ///< one of these; none if the slopes are without order in all of them
  /// As good, and of one mistake more; none where the other matrix tells.
  std::vector<Layout> further = {};

  [[nodiscard]] bool IsRight() const { return !layouts.empty() && layouts.front() == Layout(); }
};

struct MatrixLayouts {
  MatrixLayout m2s;
  MatrixLayout cm;
  /// Where the mistake may be of either matrix, M2S is said to be right, and may be in one of these while CM is right.
  std::vector<Layout> of_m2s_instead = {};
};

/// @param sound_m2s  M2S, or the same without what is odd of single sub-apertures, which is no matter of its layout
/// @param gradients  of smooth surfaces, at the used sub-apertures
/// @param used       indices of the used sub-apertures
/// @param orders     of the list of these
MatrixLayouts FindLayouts(const CalibrationContent& content, const Matrix& sound_m2s, const SlopeSpace& gradients,
                          const Lattice& lattice, const std::vector<std::size_t>& used,
                          const std::vector<ListOrder>& orders);

using UsageFlags = std::vector<std::uint8_t>;  ///< other than 0 where a sub-aperture is used

/// Usage flags of a pupil with another obscuration with which the slopes are much nearer to a gradient, if there are
/// any.
std::optional<UsageFlags> FlagsOfAnotherPupil(const CalibrationContent& content);

/// How much of the slopes changes from one sub-aperture of the list to the next as noise does: the median of the
/// squared second differences along rows of three neighbours, over what it is for any three of the slopes.
double Unevenness(const Fields& fields, const Lattice& lattice, const std::vector<std::size_t>& used);

Matrix M2sPutRight(const Matrix& m2s, const Layout& layout, const std::vector<ListOrder>& orders);
Matrix CmPutRight(const Matrix& cm, const Layout& layout, const std::vector<ListOrder>& orders);

}  // namespace quen::workbench
