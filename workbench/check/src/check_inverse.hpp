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

/// Whether one of the files holds the other's matrix, transposed or as it is in memory.
std::optional<Finding> CheckSame(const CalibrationContent& content);

/// How well the control matrix gives back its own modes and no others, 0 to 1. Not for signs: those it tells by its
/// own.
double Recovery(const Matrix& m2s, const Matrix& cm);

/// Columns that are the same but for a factor: the number of each that another one before it is like, after that of the
/// first such one. Columns of zeros are like none.
std::vector<std::pair<Eigen::Index, Eigen::Index>> SameDirections(const Matrix& columns);

/// "mode 3", "modes 48 to 51", "modes 1, 5 and 7 to 9".
std::string ModeWords(const std::vector<Eigen::Index>& modes);

}  // namespace quen::workbench
