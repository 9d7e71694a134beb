#include <memory>

#include "tools/quen-shs/src/cli/progress.hpp"
#include "tools/quen-shs/src/cli/report.hpp"
#include "tools/quen-shs/src/engines/score_file.hpp"
#include "tools/quen-shs/src/files/staged_file.hpp"
#include "tools/quen-shs/src/pictures/errors_picture.hpp"
#include "tools/quen-shs/src/sensor/calibration_lookup.hpp"
#include "tools/quen-shs/src/verbs/verbs.hpp"

namespace quen_shs {
namespace {

Json AsJson(const NamedScore& named) {
  const auto& score = named.score;
  const auto axis = [](const quen::centroiders::AxisScore& a) {
    return Json{{"bias", a.bias}, {"rms", a.rms}, {"gain", a.gain}, {"offset", a.offset}};
  };
  return {{"engine", named.engine},       {"x", axis(score.x)},
          {"y", axis(score.y)},           {"worst", score.worst},
          {"flux_bias", score.flux_bias}, {"flux_rms", score.flux_rms},
          {"failed", score.failed},       {"microseconds", score.microseconds}};
}

}  // namespace

void Score(const ScoreCommand& command) {
  StagedFiles files({command.fits, command.picture});
  auto simulator = LoadSimulator(command.folder);
  files.RefuseToReplace(CalibrationFiles());
  const std::vector<std::string> engines = command.engines.empty() ? EngineNames() : command.engines;
  const bool has_curves = !command.fits.empty() || !command.picture.empty();
  const std::size_t noises = 1 + (has_curves ? CurveNoises().size() : 0);
  const quen::centroiders::ScoreOptions& options = command.options;
  std::vector<NamedScore> scores;
  ErrorCurves curves;
  {
    Progress progress(static_cast<int>(options.frames * noises));
    quen::centroiders::ScoreOptions watched = options;
    watched.after_frame = [&] { progress.Step(); };
    scores = ScoreByName(simulator, engines, watched);
    if (has_curves) curves = ScoreAtNoises(simulator, engines, watched);
  }
  if (!command.fits.empty()) files.Give(command.fits, ScoreFile(curves, options));
  if (!command.picture.empty()) files.Give(command.picture, DrawErrors(curves));
  files.Commit();

  Report report;
  report.AddLines(ScoreTable(scores, options));
  report.Add("noise", options.noise);
  report.Add("range", options.range);
  report.Add("frames", options.frames);
  report.Add("seed", options.seed);
  report.Add("least_rms", quen::centroiders::ErrorBound(options.noise));
  Json list = Json::array();
  for (const NamedScore& score : scores) list.push_back(AsJson(score));
  report.Add("scores", list);
  if (has_curves) report.AddLine("");
  report.AddFiles(files);
  report.Print(command.json);
}

void AddScore(CommandLine& line) {
  const auto command = std::make_shared<ScoreCommand>();
  line.Add({"score",
            "Score centroiding engines against the truth",
            "Renders frames with known displacements, measures them with each engine, and prints bias, RMS error, "
            "gain,\n"
            "error of the light, share of failed spots (off by more than a pixel) and time. The least RMS is that of "
            "the\n"
            "best linear unbiased estimator for this spot and noise.",
            {"quen-shs score sensor --noise 50 --engine weighted --engine brightest:number=25 --plot errors.png"},
            true})
      .Folder(command->folder)
      .Engines(command->engines)
      .Noise(command->options.noise)
      .Number("--range", command->options.range, 0, 12, "Displacements are within this range, pixels, 0 to 12")
      .Number("--frames", command->options.frames, 1, 100000, "Number of frames, 1 to 100000")
      .Seed(command->options.seed)
      .Text("--fits", command->fits, "FITS file for the scores at noises from 1 to 1000 [none]")
      .Text("--plot", command->picture, "PNG file for the errors against the noise, 1 to 1000 [none]")
      .Json(command->json)
      .Do([command] { Score(*command); });
}

}  // namespace quen_shs
