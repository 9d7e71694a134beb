#include "workbench/check/findings_table.hpp"

#include <fmt/format.h>

#include <algorithm>

namespace quen::workbench {

std::string FindingsTable(const Findings& findings, const std::string& folder) {
  std::string text;
  for (const Finding& finding : findings) {
    text += fmt::format("{:<9} {:<14} {}\n", Word(finding.verdict), finding.subject, finding.text);
    if (!finding.advice.empty()) text += fmt::format("{:<9} {:<14} -> {}\n", "", "", finding.advice);
  }
  const auto number = [&](Verdict verdict) { return std::ranges::count(findings, verdict, &Finding::verdict); };
  return text + fmt::format("{}: {} things checked, {} wrong, {} doubtful\n", folder, findings.size(),
                            number(Verdict::kWrong), number(Verdict::kDoubtful));
}

}  // namespace quen::workbench
