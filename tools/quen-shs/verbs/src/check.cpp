#include "workbench/check/check.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

#include "tools/quen-shs/cli/report.hpp"
#include "tools/quen-shs/verbs/src/common_arguments.hpp"
#include "tools/quen-shs/verbs/verbs.hpp"

namespace quen::tool {
namespace {

struct CheckArguments {
  std::string folder;
  bool json = false;
};

const char* Word(workbench::Verdict verdict) {
  switch (verdict) {
    case workbench::Verdict::kGood:
      return "good";
    case workbench::Verdict::kDoubtful:
      return "doubtful";
    case workbench::Verdict::kWrong:
      break;
  }
  return "WRONG";
}

void Check(const CheckArguments& command) {
  const workbench::Findings findings = workbench::CheckCalibration(command.folder);
  Report report;
  Json list = Json::array();
  for (const auto& [verdict, subject, text] : findings) {
    report.AddLine(fmt::format("{:<9} {:<14} {}", Word(verdict), subject, text));
    list.push_back({{"verdict", Word(verdict)}, {"subject", subject}, {"text", text}});
  }
  report.Add("findings", list);
  const auto wrong = std::ranges::count(findings, workbench::Verdict::kWrong, &workbench::Finding::verdict);
  const auto doubtful = std::ranges::count(findings, workbench::Verdict::kDoubtful, &workbench::Finding::verdict);
  report.Add("wrong", wrong);
  report.Add("doubtful", doubtful);
  report.AddLine(
      fmt::format("{}: {} things checked, {} wrong, {} doubtful", command.folder, findings.size(), wrong, doubtful));
  report.Print(command.json);
  if (wrong > 0) throw std::runtime_error("the calibration in " + command.folder + " is not to be trusted");
}

}  // namespace

void AddCheck(CommandLine& line) {
  const auto command = std::make_shared<CheckArguments>();
  line.Add({.name = "check",
            .summary = "Say whether a calibration can be trusted",
            .details = R"(
Loads the calibration as the library does and looks at everything in it: axes, values, regions, references, usage
flags, CM * M2S, and the layout of either matrix. Names the commonest mistakes: a transposed matrix, exchanged x and
y, a flipped sign, references off by half a pixel or a whole one, rows and columns of the grid exchanged.

The slopes of any smooth wavefront have no curl around four neighbouring sub-apertures: that tells a wrong layout from
the right one without knowing the modes. If both matrices have the wrong sign throughout, this does not show.

The exit code is 1 where something is wrong. What is doubtful is printed and leaves it 0.)",
            .examples = {"quen-shs check sensor"},
            .arguments = {CalibrationFolder(command->folder), JsonFlag(command->json)},
            .action = [command] { Check(*command); }});
}

}  // namespace quen::tool
