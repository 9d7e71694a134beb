#include "workbench/sensor/matrices.hpp"

namespace quen::workbench {

Matrix PseudoInverse(const Matrix& matrix) { return matrix.completeOrthogonalDecomposition().pseudoInverse(); }

Eigensystem EigensystemOf(const Eigen::MatrixXd& symmetric) {
  const Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> solver(symmetric);
  return {solver.eigenvalues(), solver.eigenvectors()};
}

Eigen::VectorXcd EigenvaluesOf(const Matrix& square) {
  return Eigen::EigenSolver<Eigen::MatrixXd>(square, false).eigenvalues();
}

}  // namespace quen::workbench
