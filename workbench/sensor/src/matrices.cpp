#include "workbench/sensor/matrices.hpp"

#include <Eigen/Eigenvalues>
#include <Eigen/QR>

namespace quen::workbench {

Matrix PseudoInverse(const Matrix& matrix) { return matrix.completeOrthogonalDecomposition().pseudoInverse(); }

Eigensystem EigensystemOf(const Eigen::MatrixXd& symmetric) {
  const Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> solver(symmetric);
  return {solver.eigenvalues(), solver.eigenvectors()};
}

Matrix ColumnsOfLengthOne(Matrix matrix) {
  for (auto column : matrix.colwise()) column = OfLengthOne(column);
  return matrix;
}

}  // namespace quen::workbench
