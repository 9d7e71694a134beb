#include "tools/quen-shs/src/commands.hpp"

#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <tuple>
#include <vector>

#include "tools/quen-shs/src/calibration.hpp"
#include "tools/quen-shs/src/calibration_lookup.hpp"
#include "tools/quen-shs/src/picture.hpp"
#include "tools/quen-shs/src/progress.hpp"
#include "tools/quen-shs/src/scoring.hpp"
#include "tools/quen-shs/src/staged_file.hpp"
#include "tools/quen-shs/src/telemetry.hpp"

namespace quen_shs {
namespace {

void PrintWritten(const std::string& path) { std::printf("wrote %s\n", path.c_str()); }

/// Mean residual before the first correction acted, and over the second half of the run, against the disturbance there.
struct Summary {
  explicit Summary(const std::vector<FrameRecord>& records, const LoopOptions& options)
      : before(Rms(records, &FrameRecord::residual, 0, static_cast<std::size_t>(options.delay))),
        after(Rms(records, &FrameRecord::residual, records.size() / 2, records.size())),
        disturbance(Rms(records, &FrameRecord::disturbance, records.size() / 2, records.size())) {}

  double before;
  double after;
  double disturbance;
};

void Print(const Summary& summary, const LoopOptions& options, double rate) {
  std::printf("frames                  %d (gain %g, delay %d, noise %g, D/r0 %g, seed %u)\n", options.frames,
              options.gain, options.delay, options.noise, options.strength, options.seed);
  std::printf("residual before         %.4f rad RMS (frames before the first correction)\n", summary.before);
  std::printf("residual after          %.4f rad RMS (second half of the run; the disturbance there: %.4f)\n",
              summary.after, summary.disturbance);
  std::printf("speed                   %.0f frames/s\n", rate);
}

}  // namespace

void Calibrate(const std::string& folder, bool force) {
  for (const std::string& path : WriteCalibration(folder, force)) PrintWritten(path);
}

void Loop(const std::string& folder, const std::string& output, const LoopOptions& options) {
  UseCalibration(folder);
  quen::shssim::ShsSimulator simulator;

  const std::filesystem::path directory(output);
  std::filesystem::create_directories(directory);
  std::vector<StagedFile> files;
  for (const char* const name : {"frame.fits", "slopes.fits", "telemetry.fits", "loop.png"}) {
    files.emplace_back((directory / name).string());
  }
  const auto& [frame, slopes, telemetry, picture] = std::tie(files[0], files[1], files[2], files[3]);

  std::vector<FrameRecord> records;
  double rate = 0.0;
  {
    Progress progress(options.frames);
    records = RunLoop(simulator, options, {frame.Path(), slopes.Path()}, [&](int done) { progress.Show(done); });
    rate = progress.Rate(options.frames);
  }
  WriteTelemetry(telemetry.Path(), options, records);
  DrawLoop(picture.Path(), simulator, records);

  const Summary summary(records, options);
  Print(summary, options, rate);
  CheckAndCommit(files);
  for (const StagedFile& file : files) PrintWritten(file.Target());
  if (options.strength > 0.0 && !(summary.after < summary.disturbance)) {
    throw std::runtime_error("the loop did not converge: its residual is not below the disturbance; try a lower gain");
  }
}

void Score(const std::string& folder, const ScoreCommand& command) {
  UseCalibration(folder);
  quen::shssim::ShsSimulator simulator;
  PrintScores(ScoreByName(simulator, command.engines, command.options), command.options);
  if (command.picture.empty()) return;

  ErrorCurves curves = {{1, 2, 5, 10, 20, 50, 100, 200, 500, 1000}, {}};
  quen::centroiders::ScoreOptions options = command.options;
  for (const double noise : curves.noises) {
    options.noise = noise;
    curves.scores.push_back(ScoreByName(simulator, command.engines, options));
  }
  StagedFile picture(command.picture);
  DrawErrors(picture.Path(), curves, options.range);
  picture.Commit();
  std::printf("\n");
  PrintWritten(command.picture);
}

}  // namespace quen_shs
