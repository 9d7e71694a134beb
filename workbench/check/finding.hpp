#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "workbench/check/calibration_content.hpp"

namespace quen::workbench {

enum class Verdict { kGood, kDoubtful, kWrong };

/// "good", "doubtful", "WRONG".
const char* Word(Verdict verdict);

/// What would put a mistake right.
struct Correction {
  std::string mistake;  ///< stable, for programs: "exchanged", "x_flipped", …
  std::function<void(CalibrationContent&)> apply;
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
  std::vector<std::size_t> numbers =
      {};  ///< of the modes, or sub-apertures, that it is about; none if of no single one
};

inline bool IsWrong(const Finding& finding) { return finding.verdict == Verdict::kWrong; }

using Findings = std::vector<Finding>;

}  // namespace quen::workbench
