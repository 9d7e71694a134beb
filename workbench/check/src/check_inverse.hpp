#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "workbench/check/finding.hpp"

namespace quen::workbench {

/// The control matrix against the modes-to-slopes matrix, both in the right layout: which modes it gives back, in what
/// order and of what size. Leaving modes out, or giving back less of them, is a choice and no mistake.
Findings CheckInverse(const Matrix& m2s, const Matrix& cm);

/// Whether it makes the control matrix anew, of the other as it is.
bool RemakesCm(const Correction& correction);

/// Whether one of the files holds the other's matrix, transposed or as it is in memory.
std::optional<Finding> CheckSame(const CalibrationContent& content);

/// What the control matrix makes of the modes, whichever mode each of its rows is of.
class GivenBack {
 public:
  /// @param response  the control matrix times the other
  explicit GivenBack(const Eigen::MatrixXd& response);

  /// The share of the response's mean square that is of other modes than that which stands out in each row.
  [[nodiscard]] double Unclear() const { return unclear_; }
  /// Of most modes: single ones may be mistaken.
  [[nodiscard]] bool IsInOrder() const;
  [[nodiscard]] bool IsNegative() const;
  [[nodiscard]] bool HasMixedSigns() const;
  /// Each row its own mode, at least more than all others: also where an inversion leaves many modes out.
  [[nodiscard]] bool AreRight() const;

 private:
  double unclear_ = 1.0;
  double cosines_ = 0.0;  ///< between each row and that of the identity, their sum
  int rows_ = 0;          ///< other than zero
  int rows_in_place_ = 0;
  int positive_rows_ = 0;
};

/// Columns that are the same but for a factor: the number of each that another one before it is like, after that of the
/// first such one. Columns of zeros are like none.
std::vector<std::pair<Eigen::Index, Eigen::Index>> SameDirections(const Matrix& columns);

/// "mode 3", "modes 48 to 51", "modes 1, 5 and 7 to 9".
std::string ModeWords(const std::vector<Eigen::Index>& modes);

}  // namespace quen::workbench
