#include <fmt/format.h>

#include <filesystem>
#include <memory>
#include <stdexcept>

#include "tools/quen-shs/src/cli/progress.hpp"
#include "tools/quen-shs/src/cli/report.hpp"
#include "tools/quen-shs/src/files/frame_file.hpp"
#include "tools/quen-shs/src/files/series_file.hpp"
#include "tools/quen-shs/src/files/slopes_file.hpp"
#include "tools/quen-shs/src/files/staged_file.hpp"
#include "tools/quen-shs/src/loop/sweep.hpp"
#include "tools/quen-shs/src/loop/telemetry.hpp"
#include "tools/quen-shs/src/pictures/loop_picture.hpp"
#include "tools/quen-shs/src/pictures/sweep_picture.hpp"
#include "tools/quen-shs/src/sensor/calibration_lookup.hpp"
#include "tools/quen-shs/src/verbs/verbs.hpp"

namespace quen_shs {
namespace {

using quen::basesim::kFrameHeight;
using quen::basesim::kFrameWidth;
using quen::shssim::ShsSimulator;

/// Mean residual before the first correction acted, and over the second half of the run, against the disturbance there.
struct Summary {
  Summary(const std::vector<FrameRecord>& records, int delay)
      : before(Rms(records, &FrameRecord::residual, 0, std::min(static_cast<std::size_t>(delay), records.size()))),
        after(Rms(records, &FrameRecord::residual, records.size() / 2, records.size())),
        disturbance(Rms(records, &FrameRecord::disturbance, records.size() / 2, records.size())) {}

  double before;
  double after;
  double disturbance;
};

/// Where the disturbance is from, in words.
std::string Source(const LoopCommand& command) {
  return command.disturbance.empty() ? fmt::format("D/r0 {:g}", command.strength) : command.disturbance;
}

Series DisturbanceFor(const LoopCommand& command, const StagedFiles& files) {
  if (command.disturbance.empty()) {
    return TurbulentSeries(command.frames, BasisOfCalibration(CalibrationFiles().front()).variances, command.strength,
                           command.options.seed);
  }
  const InputFile file(command.disturbance);
  files.RefuseToReplace(file);
  const Series series = ReadSeries(file);
  RequireModerate(series, command.disturbance);
  if (series.rows() < command.frames) {
    throw std::runtime_error(fmt::format("{}: expected a disturbance of {} frames at least, found {}; give --frames {}",
                                         command.disturbance, command.frames, series.rows(), series.rows()));
  }
  return series.topRows(command.frames);
}

/// The files that the loop writes, in their folder.
std::vector<std::string> OutputNames(const LoopCommand& command) {
  const std::filesystem::path folder =
      command.output.empty() ? std::filesystem::path(command.folder) / "loop" : std::filesystem::path(command.output);
  std::vector<std::string> names = {"frame.fits", "slopes.fits", "telemetry.fits", "loop.png"};
  if (!command.sweep.empty()) names = {"sweep.fits", "sweep.png"};
  for (std::string& name : names) name = (folder / name).string();
  return names;
}

void AddOptions(Report& report, const LoopCommand& command) {
  const LoopOptions& options = command.options;
  report.Add("leak", options.leak);
  report.Add("delay", options.delay);
  report.Add("noise", options.noise);
  report.Add("disturbance", Source(command));
  report.Add("seed", options.seed);
  report.Add("engine", options.engine);
}

Report SummaryReport(const LoopCommand& command, const Summary& summary, std::size_t frames, double rate) {
  const LoopOptions& options = command.options;
  Report report;
  report.Add("frames", frames, "frames",
             fmt::format("{} (gain {:g}, {}delay {}, noise {:g}, {}, seed {})", frames, options.gain,
                         options.leak > 0.0 ? fmt::format("leak {:g}, ", options.leak) : "", options.delay,
                         options.noise, Source(command), options.seed));
  report.Add("gain", options.gain);
  AddOptions(report, command);
  report.Add("residual_before", summary.before, "residual before",
             fmt::format("{:.4f} rad RMS (frames before the first correction)", summary.before));
  report.Add("residual_after", summary.after, "residual after",
             fmt::format("{:.4f} rad RMS (second half of the run; the disturbance there: {:.4f})", summary.after,
                         summary.disturbance));
  report.Add("disturbance_after", summary.disturbance);
  report.Add("frames_per_second", rate, "speed", fmt::format("{:.0f} frames/s", rate));
  return report;
}

/// @throws std::runtime_error  the loop has diverged, or is no better than none
void RequireConvergence(const LoopRun& run, const Summary& summary) {
  if (run.has_diverged) {
    throw std::runtime_error(
        fmt::format("the loop diverges: in frame {} its residual is {:.3g} rad RMS, more than {:g} times the "
                    "disturbance; try a lower "
                    "gain, or a shorter delay",
                    run.records.size() - 1, run.records.back().residual.norm(), kDivergence));
  }
  if (summary.disturbance > 0.0 && !(summary.after < summary.disturbance)) {
    throw std::runtime_error("the loop did not converge: its residual is not below the disturbance; try a lower gain");
  }
}

void RunOne(const LoopCommand& command, ShsSimulator& simulator, const Series& disturbance, StagedFiles& files) {
  LoopRun run;
  double rate = 0.0;
  {
    Progress progress(command.frames);
    run = RunLoop(simulator, disturbance, command.options, [&] { progress.Step(); });
    rate = progress.Rate();
  }
  files.GiveAll({FrameFile({kFrameWidth, kFrameHeight, simulator.Frame()}), SlopesFile(simulator),
                 TelemetryFile(command.options, Source(command), run.records), DrawLoop(simulator, run.records)});
  files.Commit();

  const Summary summary(run.records, command.options.delay);
  Report report = SummaryReport(command, summary, run.records.size(), rate);
  report.Add("diverged", run.has_diverged);
  report.AddFiles(files);
  report.Print(command.json);
  RequireConvergence(run, summary);
}

void SweepGains(const LoopCommand& command, ShsSimulator& simulator, const Series& disturbance, StagedFiles& files) {
  const std::vector<double> gains = ParseSweep(command.sweep);
  std::vector<SweepPoint> points;
  {
    Progress progress(command.frames * static_cast<int>(gains.size()));
    points = RunSweep(simulator, disturbance, command.options, gains, [&] { progress.Step(); });
  }
  files.GiveAll({SweepFile(command.options, Source(command), points), DrawSweep(points)});
  files.Commit();

  Report report;
  report.Add("frames", command.frames);
  AddOptions(report, command);
  Json list = Json::array();
  report.AddLine("    gain   residual, rad RMS");
  for (const SweepPoint& point : points) {
    report.AddLine(fmt::format("{:8.4g}   {}", point.gain,
                               point.HasDiverged() ? fmt::format("diverged in frame {}", point.frames - 1)
                                                   : fmt::format("{:.4f}", point.residual)));
    list.push_back({{"gain", point.gain},
                    {"residual", point.residual},
                    {"disturbance", point.disturbance},
                    {"frames", point.frames},
                    {"diverged", point.HasDiverged()}});
  }
  report.Add("sweep", list);
  const auto best = Best(points);
  if (best) {
    report.Add("best_gain", best->gain, "best gain",
               fmt::format("{:g} (residual {:.4f} rad RMS, disturbance {:.4f})", best->gain, best->residual,
                           best->disturbance));
  }
  report.AddFiles(files);
  report.Print(command.json);
  if (!best) throw std::runtime_error("the loop diverges with every gain; try lower ones, or a shorter delay");
}

}  // namespace

void Loop(const LoopCommand& command) {
  StagedFiles files(OutputNames(command));
  auto simulator = LoadSimulator(command.folder);
  files.RefuseToReplace(CalibrationFiles());
  const Series disturbance = DisturbanceFor(command, files);
  if (command.sweep.empty()) {
    RunOne(command, simulator, disturbance, files);
  } else {
    SweepGains(command, simulator, disturbance, files);
  }
}

void AddLoop(CommandLine& line) {
  const auto command = std::make_shared<LoopCommand>();
  LoopOptions& options = command->options;
  line.Add({"loop",
            "Close an integrator loop on a calibration",
            "Frame by frame: residual = disturbance - correction; a frame with the residual's displacements; slopes;\n"
            "correction = (1 - leak) * correction + gain * CM * slopes, which acts after the delay.\n\n"
            "Writes frame.fits and slopes.fits (the last frame and its measurement), telemetry.fits (a row per\n"
            "frame) and loop.png into the output folder, replacing those of an earlier run. With --sweep: sweep.fits\n"
            "and sweep.png instead. A loop that diverges is stopped, and its files are written up to there.\n\n"
            "The disturbance is turbulence, with Kolmogorov's variances for the modes of the calibration's basis\n"
            "(Zernike modes from tip on where the calibration does not say), or what a file says: a table\n"
            "\"telemetry\" with a column \"disturbance\", or an image of doubles, 52 modes x frames, in radians.",
            {"quen-shs loop sensor --frames 500 --gain 0.4 --noise 50 --engine windowed:half-width=5 --output windy",
             "quen-shs loop sensor --frames 200 --delay 2 --sweep gain=0.1:0.9:0.1"},
            true})
      .Folder(command->folder)
      .Number("--frames", command->frames, 10, 100000, "Number of frames, 10 to 100000")
      .Number("--gain", options.gain, 0, 2, "Gain of the integrator, 0 to 2")
      .Number("--leak", options.leak, 0, 1, "Share of the correction that is forgotten in each frame, 0 to 1")
      .Number("--delay", options.delay, 1, 9, "Frames from a measurement to the first one it corrects, 1 to 9")
      .Noise(options.noise)
      .Number("--amplitude", command->strength, 0, 1000, "Strength of the turbulence, D/r0, 0 to 1000")
      .Text("--disturbance", command->disturbance, "FITS file with a disturbance to be used instead [none]")
      .OneAtMost({"--amplitude", "--disturbance"})
      .Seed(options.seed)
      .Engine(options.engine)
      .Checked("--sweep", command->sweep, "Gains to be tried one after the other, as gain=FIRST:LAST:STEP",
               [](const std::string& text) { ParseSweep(text); })
      .OneAtMost({"--gain", "--sweep"})
      .Text("--output", command->output, "Folder for the results; made if missing [DIR/loop]")
      .Json(command->json)
      .Do([command] { Loop(*command); });
}

}  // namespace quen_shs
