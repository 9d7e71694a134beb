#pragma once

#include <functional>
#include <string>
#include <vector>

#include "workbench/check/calibration_content.hpp"

namespace quen::workbench {

enum class Verdict { kGood, kDoubtful, kWrong };

/// What would put a mistake right.
struct Correction {
  std::string mistake;  ///< stable, for programs: "exchanged", "x_flipped", …
  std::function<void(CalibrationContent&)> Apply;
};

/// What one check of a calibration found.
struct Finding {
  Verdict verdict = Verdict::kGood;
  std::string key;      ///< stable, for programs: "m2s.layout"
  std::string subject;  ///< what was looked at, for people
  std::string text;     ///< what is so
  std::string advice;   ///< what to do, where there is something
  /// One of these is right; certain if it is the only one.
  std::vector<Correction> corrections;
};

inline bool IsWrong(const Finding& finding) { return finding.verdict == Verdict::kWrong; }

using Findings = std::vector<Finding>;

}  // namespace quen::workbench
