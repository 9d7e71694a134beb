#pragma once

#include <Eigen/Core>
#include <string>

namespace quen::workbench {

/// Coefficients of the 52 modes from text "MODE=RADIANS,MODE=RADIANS", modes counted from 0; the others are 0.
/// @throws std::invalid_argument  not such a text, no such mode, a mode twice, a value that is not finite
Eigen::VectorXd ParseModes(const std::string& text);

}  // namespace quen::workbench
