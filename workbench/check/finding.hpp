#pragma once

#include <string>
#include <vector>

namespace quen::workbench {

enum class Verdict { kGood, kDoubtful, kWrong };

/// What one check of a calibration found.
struct Finding {
  Verdict verdict;
  std::string subject;  ///< what was looked at
  std::string text;     ///< what is so; where it is wrong, also what to do
};

using Findings = std::vector<Finding>;

}  // namespace quen::workbench
