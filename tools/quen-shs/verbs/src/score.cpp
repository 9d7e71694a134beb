#include <fmt/format.h>

#include <memory>

#include "centroiders/score.hpp"
#include "tools/quen-shs/cli/progress.hpp"
#include "tools/quen-shs/cli/report.hpp"
#include "tools/quen-shs/verbs/src/common_arguments.hpp"
#include "tools/quen-shs/verbs/verbs.hpp"
#include "workbench/engines/engines.hpp"
#include "workbench/engines/score_file.hpp"
#include "workbench/engines/scoring.hpp"
#include "workbench/fits/staged_file.hpp"
#include "workbench/pictures/errors_picture.hpp"
#include "workbench/sensor/calibration_lookup.hpp"
#include "workbench/sensor/displacements.hpp"

namespace quen::tool {
namespace {

struct ScoreArguments {
  std::string folder;
  std::vector<std::string> engines;  ///< as for MakeEngine; all if empty
  workbench::ScoreConditions conditions;
  DetectorArguments detector;
  std::string output;  ///< FITS file for the table; none if empty
  std::string png;     ///< file for the errors against the noise; none if empty
  bool json = false;
};

Json AsJson(const workbench::NamedScore& named) {
  const auto& score = named.score;
  const auto axis = [](const quen::centroiders::AxisScore& a) {
    return Json{{"bias", a.bias}, {"rms", a.rms}, {"gain", a.gain}, {"offset", a.offset}};
  };
  return {{"engine", named.engine},       {"x", axis(score.x)},
          {"y", axis(score.y)},           {"worst", score.worst},
          {"flux_bias", score.flux_bias}, {"flux_rms", score.flux_rms},
          {"failed", score.failed},       {"microseconds", score.microseconds}};
}

void Score(ScoreArguments& command) {
  workbench::StagedFiles files({command.output, command.png});
  auto simulator = workbench::LoadSimulator(command.folder);
  files.RefuseToReplace(workbench::CalibrationFiles());
  command.conditions.detector = DetectorFor(command.detector, files);
  const std::vector<std::string> engines = command.engines.empty() ? workbench::EngineNames() : command.engines;
  const bool has_curves = !command.output.empty() || !command.png.empty();
  const workbench::Abscissa abscissa =
      command.conditions.detector ? workbench::Abscissa::kLight : workbench::Abscissa::kNoise;
  const std::size_t places = 1 + (has_curves ? workbench::CurvePlaces(abscissa).size() : 0);
  const quen::centroiders::ScoreOptions& options = command.conditions.options;
  std::vector<workbench::NamedScore> scores;
  workbench::ErrorCurves curves;
  {
    Progress progress(static_cast<int>(options.frames * places));
    workbench::ScoreConditions watched = command.conditions;
    watched.options.after_frame = [&] { progress.Step(); };
    scores = workbench::ScoreByName(simulator, engines, watched);
    if (has_curves) curves = workbench::ScoreAlong(simulator, engines, watched);
  }
  if (!command.output.empty()) files.Give(command.output, workbench::ScoreFile(curves, command.conditions));
  if (!command.png.empty()) files.Give(command.png, workbench::DrawErrors(curves));
  files.Commit();

  Report report;
  report.AddLines(workbench::ScoreTable(scores, command.conditions));
  AddExposureForScripts(report, {options.noise, options.seed, command.conditions.detector});
  report.Add("range", options.range);
  report.Add("frames", options.frames);
  report.Add("least_rms", command.conditions.LeastRms());
  Json list = Json::array();
  for (const workbench::NamedScore& score : scores) list.push_back(AsJson(score));
  report.Add("scores", list);
  if (has_curves) report.AddLine("");
  report.AddFiles(files);
  report.Print(command.json);
}

}  // namespace

void AddScore(CommandLine& line) {
  const auto command = std::make_shared<ScoreArguments>();
  const auto ends = [](const std::vector<double>& places) {
    return fmt::format("{:.0f} to {:.0f}", places.front(), places.back());
  };
  const std::vector<double> noises = workbench::CurvePlaces(workbench::Abscissa::kNoise);
  const std::vector<double> lights = workbench::CurvePlaces(workbench::Abscissa::kLight);
  line.Add(
      {.name = "score",
       .summary = "Score centroiding engines against the truth",
       .details = R"(
Renders frames with known displacements, measures them with each engine, and prints bias, RMS error, gain, error of the
light, share of failed spots (off by more than a pixel) and time. The least RMS is that of the best linear unbiased
estimator for this spot and noise.

With a detector, engines measure its counts: give those that need it the pedestal, as in centre-of-gravity:background=100.
The files then hold errors against the light of a spot instead of the noise.)",
       .list = workbench::EngineHelp(),
       .examples = {"quen-shs score sensor --noise 50 --engine weighted --engine brightest:number=25 --png errors.png"},
       .arguments = Joined(
           {{CalibrationFolder(command->folder), Engines(command->engines)},
            ExposureArguments(command->conditions.options.noise, command->conditions.options.seed, command->detector),
            {UseMaps(command->detector),
             Number("--range", "Displacements are within this range", "pixels", {0.0, workbench::kSlopeLimit},
                    command->conditions.options.range),
             Number("--frames", "Number of frames", "", workbench::ScoringLimits::kFrames,
                    command->conditions.options.frames),
             File("--output",
                  fmt::format("FITS file for the scores at noises of {}, or lights of {}", ends(noises), ends(lights)),
                  "none", command->output),
             File("--png", "PNG file for the errors against the noise, or the light", "none", command->png),
             JsonFlag(command->json)}}),
       .alternatives = WithExposure({}),
       .action = [command] { Score(*command); }});
}

}  // namespace quen::tool
