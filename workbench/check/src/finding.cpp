#include "workbench/check/finding.hpp"

namespace quen::workbench {

const char* Word(Verdict verdict) {
  switch (verdict) {
    case Verdict::kGood:
      return "good";
    case Verdict::kDoubtful:
      return "doubtful";
    case Verdict::kWrong:
      break;
  }
  return "WRONG";
}

}  // namespace quen::workbench
