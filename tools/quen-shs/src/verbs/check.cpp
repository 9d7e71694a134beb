#include "tools/quen-shs/src/check/check.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

#include "tools/quen-shs/src/cli/report.hpp"
#include "tools/quen-shs/src/verbs/verbs.hpp"

namespace quen_shs {
namespace {

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

}  // namespace

void Check(const CheckCommand& command) {
  const Findings findings = CheckCalibration(command.folder);
  Report report;
  Json list = Json::array();
  for (const auto& [verdict, subject, text] : findings) {
    report.AddLine(fmt::format("{:<9} {:<14} {}", Word(verdict), subject, text));
    list.push_back({{"verdict", Word(verdict)}, {"subject", subject}, {"text", text}});
  }
  report.Add("findings", list);
  const auto wrong = std::ranges::count(findings, Verdict::kWrong, &Finding::verdict);
  const auto doubtful = std::ranges::count(findings, Verdict::kDoubtful, &Finding::verdict);
  report.Add("wrong", wrong);
  report.Add("doubtful", doubtful);
  report.AddLine(
      fmt::format("{}: {} things checked, {} wrong, {} doubtful", command.folder, findings.size(), wrong, doubtful));
  report.Print(command.json);
  if (wrong > 0) throw std::runtime_error("the calibration in " + command.folder + " is not to be trusted");
}

void AddCheck(CommandLine& line) {
  const auto command = std::make_shared<CheckCommand>();
  line.Add(
          {"check",
           "Say whether a calibration can be trusted",
           "Loads the calibration as the library does and looks at everything in it: axes, values, regions,\n"
           "references, usage flags, CM * M2S, and the layout of either matrix. Names the commonest mistakes: a\n"
           "transposed matrix, exchanged x and y, a flipped sign, references off by half a pixel or a whole one, rows\n"
           "and columns of the grid exchanged.\n\n"
           "The slopes of any smooth wavefront have no curl around four neighbouring sub-apertures: that tells a "
           "wrong\n"
           "layout from the right one without knowing the modes. A sign that is flipped in all of both matrices\n"
           "cannot be seen so.\n\n"
           "Exit code 1 where something is wrong; doubts are printed only.",
           {"quen-shs check sensor"}})
      .Folder(command->folder)
      .Json(command->json)
      .Do([command] { Check(*command); });
}

}  // namespace quen_shs
