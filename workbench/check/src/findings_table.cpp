#include "workbench/check/findings_table.hpp"

#include <fmt/format.h>

#include <algorithm>

#include "workbench/fits/plain_text.hpp"

namespace quen::workbench {

std::string FindingsTable(const Findings& findings, const std::string& folder) {
  std::string text;
  for (const Finding& finding : findings) {
    text += Sentence(fmt::format("{:<9} {:<14} {}", Word(finding.verdict), finding.subject, finding.text)) + "\n";
    if (!finding.advice.empty()) text += Sentence(fmt::format("{:<9} {:<14} -> {}", "", "", finding.advice)) + "\n";
  }
  const auto number = [&](Verdict verdict) { return std::ranges::count(findings, verdict, &Finding::verdict); };
  return text +
         Sentence(fmt::format("{}: {} things checked, {} wrong, {} doubtful", folder, findings.size(),
                              number(Verdict::kWrong), number(Verdict::kDoubtful))) +
         "\n";
}

}  // namespace quen::workbench
