#pragma once

#include <Eigen/Core>

#include "shssim/shs_simulator.hpp"
#include "workbench/sensor/dimensions.hpp"

/// @file
/// A simulator's matrices and slopes for linear algebra, without a copy: good as long as the simulator is. And what
/// takes matrices apart: Eigen's decompositions take the compiler so long that each is compiled once, here.

namespace quen::workbench {

/// Row by row, as the files hold it.
using Matrix = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

/// Modes to slopes, 1214 × 52.
inline Eigen::Map<const Matrix> M2sOf(const quen::shssim::ShsSimulator& simulator) {
  return {simulator.M2s().data(), kNumSlopes, kNumModes};
}

/// Control matrix, 52 × 1214.
inline Eigen::Map<const Matrix> CmOf(const quen::shssim::ShsSimulator& simulator) {
  return {simulator.Cm().data(), kNumModes, kNumSlopes};
}

/// The last slopes, 1214.
inline Eigen::Map<const Eigen::VectorXd> SlopesOf(const quen::shssim::ShsSimulator& simulator) {
  return {simulator.Slopes().data(), kNumSlopes};
}

/// result = matrix · vector, in the result's own memory.
void Multiply(const Eigen::Map<const Matrix>& matrix, const Eigen::Ref<const Eigen::VectorXd>& vector,
              Eigen::VectorXd& result);

/// The control matrix of a modes-to-slopes matrix, or the reverse.
Matrix PseudoInverse(const Matrix& matrix);

/// Of a symmetric matrix.
struct Eigensystem {
  Eigen::VectorXd values;   ///< ascending
  Eigen::MatrixXd vectors;  ///< columns, of length 1
};
Eigensystem EigensystemOf(const Eigen::MatrixXd& symmetric);

/// A vector over its length, whose square may be more than a number holds; zeros stay.
template <typename Vector>
typename Vector::PlainObject OfLengthOne(const Eigen::MatrixBase<Vector>& vector) {
  if (vector.isZero(0.0)) return vector;
  return vector.stableNormalized();
}

/// Each column so.
Matrix ColumnsOfLengthOne(Matrix matrix);

}  // namespace quen::workbench
