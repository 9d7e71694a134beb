#pragma once

#include <Eigen/Cholesky>
#include <vector>

#include "workbench/check/src/layout.hpp"
#include "workbench/sensor/dimensions.hpp"

/// @file
/// Slope vectors that a matrix's should be made of, and in which layout they are.

namespace quen::workbench {

inline constexpr int kSmoothDegree = 14;  ///< of smooth surfaces: with details of a tenth of the pupil

/// Sums of given slope vectors.
class SlopeSpace {
 public:
  /// @param vectors  1214 × n, in the right layout, of any scale; zeros are left out
  explicit SlopeSpace(const Fields& vectors);

  /// Gradients of smooth surfaces: of the products of Chebyshev polynomials up to a degree, at the used sub-apertures.
  /// A wavefront's slopes are such a gradient, whatever the modes are.
  static SlopeSpace OfGradients(const std::vector<Roi>& rois, const std::vector<std::size_t>& used, int degree);

  /// The products themselves, at the used sub-apertures: 607 × n. Slopes along one axis that change smoothly are such a
  /// sum, also where x and y slopes together are no gradient.
  static SlopeSpace OfSurfaces(const std::vector<Roi>& rois, const std::vector<std::size_t>& used, int degree);

  /// The share of each vector's mean square that is in this space, 0 to 1; 0 for zeros.
  [[nodiscard]] Eigen::VectorXd Shares(const Fields& fields) const;

  /// Slope vectors of this space at right angles, of length 1: 1214 × n.
  [[nodiscard]] Eigen::MatrixXd Basis() const;

  /// A layout in which slope vectors may be, and what of their mean square is in this space then.
  struct Candidate {
    Layout layout;
    double share = 0.0;
  };

  /// As they stand.
  [[nodiscard]] double Share(const Fields& fields) const;

  /// The right layout, and the same with other signs and units, best first. Here a unit that differs by a tenth shows:
  /// that of good calibrations is right to two hundredths, whatever their noise.
  [[nodiscard]] std::vector<Candidate> InPlace(const Fields& fields) const;

  /// Every layout for slope vectors that stand as `fields`, and `transposed` if they are transposed in memory; best
  /// first, and among equals that of the fewest mistakes. Signs of both blocks together do not matter here, so y keeps
  /// its sign.
  [[nodiscard]] std::vector<Candidate> Try(const Fields& fields, const Fields& transposed,
                                           const std::vector<ListOrder>& orders) const;

 private:
  [[nodiscard]] Eigen::MatrixXd Solved(const Eigen::MatrixXd& products) const;
  /// How clearly another unit must show: so many times larger or smaller, and with so much of what is not explained in
  /// the same unit.
  struct UnitLimits {
    double size;
    double gain;
  };
  /// Slopes along one axis.
  struct Block {
    Eigen::MatrixXd part;  ///< of the space, in an orthonormal basis
    double square;         ///< of all of them
  };
  [[nodiscard]] static std::vector<Candidate> Signs(const Block& y, const Block& x, const Layout& layout,
                                                    const UnitLimits& limits);
  [[nodiscard]] Eigen::MatrixXd PartOfY(const Eigen::MatrixXd& slopes) const;
  [[nodiscard]] Eigen::MatrixXd PartOfX(const Eigen::MatrixXd& slopes) const;

  Eigen::MatrixXd vectors_;
  Eigen::LLT<Eigen::MatrixXd> gram_;
};

/// A few sums of slope vectors of the same size with random signs, which are in a layout, and a space, as these are.
Fields Sample(const Fields& fields, Eigen::Index sums = 4);

}  // namespace quen::workbench
