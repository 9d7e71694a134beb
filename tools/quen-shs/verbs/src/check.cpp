#include "workbench/check/check.hpp"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "tools/quen-shs/cli/report.hpp"
#include "tools/quen-shs/verbs/src/common_arguments.hpp"
#include "tools/quen-shs/verbs/verbs.hpp"
#include "workbench/check/correct.hpp"
#include "workbench/check/findings_table.hpp"
#include "workbench/fits/content.hpp"
#include "workbench/fits/staged_file.hpp"
#include "workbench/pictures/check_picture.hpp"
#include "workbench/sensor/calibration.hpp"
#include "workbench/sensor/calibration_lookup.hpp"
#include "workbench/telemetry/aot.hpp"

namespace quen::tool {
namespace {

struct CheckArguments {
  std::string folder;
  bool is_strict = false;
  std::string png;  ///< file; none if empty
  std::string fix;  ///< folder for the corrected calibration; none if empty
  bool json = false;
};

/// What keeps the examination from its beginning, as a finding: scripts get their JSON whatever happens.
workbench::Finding Unreadable(const std::string& why) {
  return {workbench::Verdict::kWrong, "calibration", "calibration", why, "", {}};
}

void AddFindings(const workbench::Findings& findings, Report& report) {
  Json list = Json::array();
  for (const workbench::Finding& finding : findings) {
    Json mistakes = Json::array();
    for (const workbench::Correction& correction : finding.corrections) mistakes.push_back(correction.mistake);
    list.push_back({{"key", finding.key},
                    {"verdict", Word(finding.verdict)},
                    {"subject", finding.subject},
                    {"text", finding.text},
                    {"advice", finding.advice},
                    {"mistakes", mistakes}});
  }
  report.Add("findings", list);
}

/// The files of the corrected calibration, if the findings leave no choice.
std::vector<std::string> CorrectedFiles(const CheckArguments& command, const workbench::Examination& examination) {
  if (!examination.content) {
    throw std::runtime_error("the library does not load the calibration, so there is nothing that could be put right");
  }
  if (std::ranges::none_of(examination.findings, workbench::IsWrong)) {
    throw std::runtime_error("nothing is wrong with the calibration in " + command.folder +
                             ", so there is nothing to put right");
  }
  const auto corrected = workbench::Corrected(*examination.content, examination.findings);
  if (!corrected) {
    throw std::runtime_error(
        "the corrections are not certain, so nothing is written: put right what is found, and check again");
  }
  return workbench::CorrectedBytes(*corrected);
}

/// The files that are asked for.
std::vector<std::string> OutputNames(const CheckArguments& command) {
  std::vector<std::string> names = {command.png};
  if (!command.fix.empty()) std::ranges::move(workbench::CalibrationNames(command.fix), std::back_inserter(names));
  return names;
}

void GivePicture(const CheckArguments& command, const workbench::Examination& examination,
                 workbench::StagedFiles& files, Report& report) {
  if (!examination.content) {
    files.GiveUp(command.png);
    report.AddLine("no picture: the library does not load the calibration");
    return;
  }
  files.Give(command.png,
             workbench::DrawFindings(*examination.content, examination.findings, "check " + command.folder));
}

void GiveCorrected(const CheckArguments& command, const workbench::Examination& examination,
                   workbench::StagedFiles& files) {
  std::vector<std::string> contents = CorrectedFiles(command, examination);
  const std::vector<std::string> names = workbench::CalibrationNames(command.fix);
  for (std::size_t k = 0; k < names.size(); ++k) files.Give(names[k], std::move(contents[k]));
}

/// Writes the picture and the corrected calibration, as far as they are asked for.
void WriteFiles(const CheckArguments& command, const workbench::Examination& examination, workbench::StagedFiles& files,
                Report& report) {
  if (!command.png.empty()) GivePicture(command, examination, files, report);
  if (!command.fix.empty()) GiveCorrected(command, examination, files);
  if (files.Names().empty()) return;
  files.RefuseToReplace(workbench::CalibrationFiles());
  files.Commit();
  if (!command.fix.empty()) {
    for (const workbench::Finding& finding : examination.findings) {
      if (workbench::IsWrong(finding)) report.AddLine("put right: " + finding.advice);
    }
  }
  report.AddFiles(files);
}

workbench::Examination ExaminationOf(const CheckArguments& command) {
  if (!command.json) return workbench::CheckCalibration(command.folder);
  try {
    return workbench::CheckCalibration(command.folder);
  } catch (const std::runtime_error& error) {
    return {{Unreadable(error.what())}, std::nullopt};
  }
}

/// A file in place of a folder: telemetry.
/// @throws std::runtime_error  it is something else, or is not as it should be
void CheckTelemetry(const CheckArguments& command) {
  const workbench::InputFile file(command.folder);
  if (!workbench::IsFits(file) || !workbench::IsAot(file)) {
    throw std::runtime_error(command.folder +
                             ": expected a folder with a calibration, or a file of Adaptive Optics Telemetry, found "
                             "another file");
  }
  if (!command.png.empty() || !command.fix.empty()) {
    throw std::runtime_error(command.folder + ": --png and --fix are for calibrations, not for telemetry");
  }
  const workbench::AotSummary summary = workbench::ExamineAot(file);
  Report report;
  report.Add("version", summary.version);
  report.Add("tables", summary.tables);
  report.Add("references", summary.references);
  report.Add("frames", summary.frames);
  report.Add("subapertures", summary.subapertures);
  report.Add("modes", summary.modes);
  report.AddLine(command.folder + ": " + workbench::InWords(summary));
  report.Print(command.json);
}

void CheckCalibration(const CheckArguments& command) {
  if (!command.fix.empty()) {
    workbench::RequireNew(workbench::CalibrationNames(command.fix), "give --fix the name of another folder");
  }
  workbench::StagedFiles files(OutputNames(command));
  const workbench::Examination examination = ExaminationOf(command);
  const workbench::Findings& findings = examination.findings;
  const auto wrong = std::ranges::count(findings, workbench::Verdict::kWrong, &workbench::Finding::verdict);
  const auto doubtful = std::ranges::count(findings, workbench::Verdict::kDoubtful, &workbench::Finding::verdict);
  Report report;
  AddFindings(findings, report);
  report.Add("wrong", wrong);
  report.Add("doubtful", doubtful);
  report.AddLines(workbench::FindingsTable(findings, command.folder));
  try {
    WriteFiles(command, examination, files, report);
  } catch (const std::exception&) {
    report.Print(command.json);  // what is found is told, whatever cannot be written
    throw;
  }
  report.Print(command.json);
  if (!command.fix.empty()) return;
  if (wrong > 0) throw std::runtime_error("the calibration in " + command.folder + " is not to be trusted");
  if (command.is_strict && doubtful > 0) {
    throw std::runtime_error("the calibration in " + command.folder + " is doubtful");
  }
}

void Check(const CheckArguments& command) {
  std::error_code error;
  const auto kind = std::filesystem::status(command.folder, error).type();
  if (kind == std::filesystem::file_type::not_found || kind == std::filesystem::file_type::directory || error) {
    CheckCalibration(command);
  } else {
    CheckTelemetry(command);
  }
}

}  // namespace

void AddCheck(CommandLine& line) {
  const auto command = std::make_shared<CheckArguments>();
  line.Add({.name = "check",
            .summary = "Say whether a calibration, or a file of telemetry, can be trusted",
            .details = R"(
Loads the calibration as the library does and looks at everything in it: axes, values, regions, references, usage
flags, the layout of either matrix, and CM * M2S. Names mistakes and says what to do. Where a file is missing, or
cannot be read, it says so, and examines the others.

Each finding is WRONG: a loop on this calibration cannot work; or doubtful: unusual, and it says what would make it
fine; or good. The exit code is 1 where something is wrong, with --strict also where something is doubtful.

The slopes of any smooth wavefront are a gradient: that tells a wrong layout from the right one without knowing the
modes. It does not tell a flipped sign from a list in mirrored order, which are the same for a mirrored wavefront; both
are named. Single modes in another layout are told from those of noise, which is measured in each mode's finest details.
That a control matrix leaves modes out, or gives back less of them, is a choice: it is said, and is no mistake.

What the files do not tell, for they are the same up to noise, is this. Both matrices with the wrong sign throughout, and
references that are off by less than 0.27 pixels, which lenslet arrays have of their own, look like a right calibration.
On a pupil that looks the same mirrored or turned, so do both matrices with lists turned by 180 degrees; both mirrored,
lists and signs; or both by columns and with exchanged blocks: they are those of a mirrored or turned wavefront. Where
another layout has such a twin, both are named. Of two matrices that do not match, it is not told which has the flipped
sign, the other order of modes or the other scale: the findings name either. To be sure, poke one actuator, and see.

What is not told, though a close look at the files may: flags that differ in a few sub-apertures, in matrices as noisy
as a fifth of their slopes.

With --png the findings are drawn, each as things stand and as its corrections would have them. With --fix the corrected
calibration is written to another folder, if what is wrong leaves no choice.

In place of a folder, a file of Adaptive Optics Telemetry (docs/telemetry.md), whoever wrote it: that all its tables and
columns are there, that what rows refer to is there, and that the axes of a loop's images are as long as each other.)",
            .list = R"(Keys of the findings in JSON:
  calibration                                   what keeps the examination from its beginning
  m2s.file, cm.file, rois.file, loading         the files, each by itself, and the library's word on them
  skipped                                       what is not examined, for want of a file
  regions.coverage, flags.count                 regions on the frame; number of usage flags
  references.inside, references.offset_x, _y    references within their regions, and from their middle
  m2s.values, cm.values                         finite, and not all zeros
  m2s.layout, cm.layout, layout, flags.pupil    order of the slopes in either matrix; flags of another pupil
  cm.inverse, cm.sign, cm.signs, cm.order, cm.scale   CM * M2S
  m2s.modes, m2s.noise, m2s.subapertures        single modes and sub-apertures: zeros, no order, noise, there twice
"mistakes" lists the corrections that come into question, "x_flipped" for instance; if it is one, it is certain.)",
            .examples = {"quen-shs check sensor", "quen-shs check sensor --png findings.png",
                         "quen-shs check sensor --fix mended", "quen-shs check run.fits"},
            .arguments = {Positional("DIR", "Folder with the calibration (DIR/data/...), or a file of telemetry",
                                     command->folder),
                          Flag("--strict", "Exit with 1 also where something is doubtful", command->is_strict),
                          File("--png", "PNG file for a picture of what is found", "none", command->png),
                          Folder("--fix", "Folder to write the corrected calibration to", "nothing is written",
                                 command->fix),
                          JsonFlag(command->json)},
            .action = [command] { Check(*command); }});
}

}  // namespace quen::tool
