#include <fmt/format.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "tools/quen-shs/cli/output.hpp"
#include "tools/quen-shs/cli/progress.hpp"
#include "tools/quen-shs/cli/report.hpp"
#include "tools/quen-shs/cli/status_line.hpp"
#include "tools/quen-shs/verbs/src/common_arguments.hpp"
#include "tools/quen-shs/verbs/src/streams.hpp"
#include "tools/quen-shs/verbs/verbs.hpp"
#include "workbench/engines/engines.hpp"
#include "workbench/fits/interruption.hpp"
#include "workbench/fits/staged_file.hpp"
#include "workbench/live/controller.hpp"
#include "workbench/loop/control_loop.hpp"
#include "workbench/loop/series_file.hpp"
#include "workbench/loop/sweep.hpp"
#include "workbench/loop/telemetry.hpp"
#include "workbench/pictures/loop_picture.hpp"
#include "workbench/pictures/sweep_picture.hpp"
#include "workbench/sensor/basis.hpp"
#include "workbench/sensor/calibration_lookup.hpp"
#include "workbench/sensor/frame_file.hpp"
#include "workbench/sensor/measurement_file.hpp"
#include "workbench/telemetry/aot.hpp"

namespace quen::tool {
namespace {

constexpr int kDefaultFrames = 1000;

struct LoopArguments {
  std::string folder;
  int frames = 0;           ///< 0: not given
  double d_over_r0 = 20.0;  ///< strength of the turbulence
  std::string disturbance;  ///< file; turbulence of that strength if empty
  workbench::LoopOptions options;
  DetectorArguments detector;
  std::string sweep;                        ///< gain=FIRST:LAST:STEP; one loop if empty
  std::string results;                      ///< folder; DIR/loop if empty
  std::string aot;                          ///< file for the convention's telemetry; none if empty
  bool aot_frames = false;                  ///< whether that has the frames
  workbench::ControllerOptions controller;  ///< of a loop through streams; one of its own if these have no name
  bool json = false;
};

/// Where the disturbance is from, in words.
std::string Source(const LoopArguments& command) {
  return command.disturbance.empty() ? fmt::format("D/r0 {:g}", command.d_over_r0) : command.disturbance;
}

workbench::Series DisturbanceFor(const LoopArguments& command, const workbench::StagedFiles& files) {
  if (command.disturbance.empty()) {
    return workbench::TurbulentSeries(command.frames,
                                      workbench::BasisOfCalibration(workbench::CalibrationFiles().front()).variances,
                                      command.d_over_r0, command.options.exposure.seed);
  }
  const workbench::InputFile file(command.disturbance);
  files.RefuseToReplace(file);
  const workbench::Series series = workbench::ReadSeries(file);
  workbench::RequireModerate(series, command.disturbance);
  if (series.rows() < command.frames) {
    throw std::runtime_error(fmt::format("{}: expected a disturbance of {} frames at least, found {}; give --frames {}",
                                         command.disturbance, command.frames, series.rows(), series.rows()));
  }
  return series.topRows(command.frames);
}

/// The files that the loop writes, in their folder.
std::vector<std::string> OutputNames(const LoopArguments& command) {
  const std::filesystem::path folder =
      command.results.empty() ? std::filesystem::path(command.folder) / "loop" : std::filesystem::path(command.results);
  std::vector<std::string> names = {"frame.fits", "slopes.fits", "telemetry.fits", "loop.png"};
  if (!command.sweep.empty()) names = {"sweep.fits", "sweep.png"};
  for (std::string& name : names) name = (folder / name).string();
  names.push_back(command.aot);
  return names;
}

void AddOptions(Report& report, const LoopArguments& command) {
  const workbench::LoopOptions& options = command.options;
  report.Add("leak", options.leak);
  report.Add("delay", options.delay);
  AddExposureForScripts(report, options.exposure);
  report.Add("disturbance", Source(command));
  report.Add("engine", options.engine);
}

Report SummaryReport(const LoopArguments& command, const workbench::LoopSummary& summary, std::size_t frames,
                     double rate) {
  const workbench::LoopOptions& options = command.options;
  Report report;
  report.Add("frames", frames, "frames",
             fmt::format("{} (gain {:g}, {}delay {}, {}, {}, seed {})", frames, options.gain,
                         options.leak > 0.0 ? fmt::format("leak {:g}, ", options.leak) : "", options.delay,
                         workbench::InWords(options.exposure), Source(command), options.exposure.seed));
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

/// How many spots of these frames the engine has not found.
std::string LostInWords(std::size_t lost, std::size_t frames) {
  return fmt::format("{} of {}, which say nothing of the modes", lost, frames * workbench::kNumRoisUsed);
}

/// For scripts always, for a person where there are any.
void AddLostSpots(Report& report, const workbench::LoopRun& run) {
  if (run.lost_spots == 0) return report.Add("lost_spots", run.lost_spots);
  report.Add("lost_spots", run.lost_spots, "spots not found", LostInWords(run.lost_spots, run.records.size()));
}

void RunOne(const LoopArguments& command, workbench::Camera& camera, const workbench::Series& disturbance,
            workbench::StagedFiles& files) {
  const auto pedestal = workbench::PedestalOfDetector(camera, command.options.exposure);
  std::optional<workbench::AotRecorder> aot;
  if (!command.aot.empty()) aot.emplace(camera, command.options, command.aot, command.aot_frames);
  workbench::LoopRun run;
  double rate = 0.0;
  {
    Progress progress(command.frames);
    run = workbench::RunLoop(camera, disturbance, command.options, [&] {
      if (aot) aot->Record();
      progress.Step();
    });
    rate = progress.Rate();
  }
  files.GiveAll({workbench::FrameFile(camera, command.options.exposure),
                 workbench::MeasurementFile(camera, command.options.exposure),
                 workbench::TelemetryFile(command.options, Source(command), run.records),
                 workbench::DrawLoop(workbench::FrameOf(camera, command.options.exposure), camera, run.records)});
  if (aot) {
    aot->Write(run.records, Source(command),
               [&](std::string_view bytes, std::size_t position) { files.GiveAt(command.aot, bytes, position); });
  }
  files.Commit();

  const workbench::LoopSummary summary = workbench::SummaryOf(run, command.options.delay);
  Report report = SummaryReport(command, summary, run.records.size(), rate);
  AddLostSpots(report, run);
  report.Add("diverged", run.has_diverged);
  AddPedestal(report, pedestal, command.options.engine);
  report.AddFiles(files);
  report.Print(command.json);
  const std::string failure = workbench::FailureOf(run, summary);
  if (!failure.empty()) throw std::runtime_error(failure);
}

void SweepGains(const LoopArguments& command, workbench::Camera& camera, const workbench::Series& disturbance,
                workbench::StagedFiles& files) {
  const std::vector<double> gains = workbench::ParseSweep(command.sweep);
  const auto pedestal = workbench::PedestalOfDetector(camera, command.options.exposure);
  std::vector<workbench::SweepPoint> points;
  {
    Progress progress(command.frames * static_cast<int>(gains.size()));
    points = workbench::RunSweep(camera, disturbance, command.options, gains, [&] { progress.Step(); });
  }
  files.GiveAll({workbench::SweepFile(command.options, Source(command), points), workbench::DrawSweep(points)});
  files.Commit();

  Report report;
  report.Add("frames", command.frames);
  AddOptions(report, command);
  Json list = Json::array();
  report.AddLine("    gain   residual, rad RMS");
  for (const workbench::SweepPoint& point : points) {
    report.AddLine(fmt::format("{:8.4g}   {}{}", point.gain,
                               point.HasDiverged() ? fmt::format("diverged in frame {}", point.frames - 1)
                                                   : fmt::format("{:.4f}", point.residual),
                               point.lost > 0 ? "; spots not found: " + LostInWords(point.lost, point.frames) : ""));
    list.push_back({{"gain", point.gain},
                    {"residual_rms", point.residual},
                    {"disturbance_rms", point.disturbance},
                    {"frames", point.frames},
                    {"lost_spots", point.lost},
                    {"diverged", point.HasDiverged()}});
  }
  report.Add("sweep", list);
  const auto best = workbench::Best(points);
  if (best) {
    report.Add("best_gain", best->gain, "best gain",
               fmt::format("{:g} (residual {:.4f} rad RMS, disturbance {:.4f})", best->gain, best->residual,
                           best->disturbance));
  }
  AddPedestal(report, pedestal, command.options.engine);
  report.AddFiles(files);
  report.Print(command.json);
  if (!best) throw std::runtime_error("the loop diverges with every gain; try lower ones, or a shorter delay");
}

// --- Through streams

std::string LineOf(const workbench::Controller& controller) {
  const workbench::ControllerCounts& counts = controller.Counts();
  return fmt::format("{} frames, {:.1f} frames/s, {} lost, slopes {:.4f} pixels RMS", counts.frames,
                     controller.FramesPerSecond(), counts.lost, controller.RecentSlopes());
}

/// Answers frames until there were as many as are wanted.
/// @throws Interrupted         a signal has come
/// @throws std::runtime_error  no frame comes any more
void Answer(workbench::Controller& controller, const LoopArguments& command) {
  StatusLine line;
  while (command.frames == 0 || controller.Counts().frames < static_cast<std::uint64_t>(command.frames)) {
    workbench::ThrowIfInterrupted();
    const workbench::StreamEvent event = controller.Step();
    if (event == workbench::StreamEvent::kMadeAnew || event == workbench::StreamEvent::kGone) {
      line.Clear();
      Say(EventInWords(event, command.controller.frames));
    }
    if (line.IsDue()) line.Show(LineOf(controller));
  }
}

void PrintController(const workbench::Controller& controller, const LoopArguments& command) {
  const workbench::ControllerOptions& options = command.controller;
  const workbench::ControllerCounts& counts = controller.Counts();
  Report report;
  report.Add("frames", counts.frames, "frames",
             fmt::format("{} of stream {} (gain {:g}, {}{})", counts.frames, options.frames, options.gain,
                         options.leak > 0.0 ? fmt::format("leak {:g}, ", options.leak) : "", options.engine));
  report.Add("through", options.frames);
  report.Add("corrections", options.corrections);
  report.Add("gain", options.gain);
  report.Add("leak", options.leak);
  report.Add("engine", options.engine);
  report.Add("lost_frames", counts.lost, "lost frames", std::to_string(counts.lost));
  report.Add("made_anew", counts.made_anew);
  report.Add("slopes_rms_first", controller.FirstSlopes());
  report.Add("slopes_rms", controller.RecentSlopes(), "slopes",
             fmt::format("{:.4f} pixels RMS in the last 100 frames, {:.4f} in the first one", controller.RecentSlopes(),
                         controller.FirstSlopes()));
  report.Add("lost_spots", counts.lost_spots);
  if (counts.lost_spots > 0) {
    report.AddLine(fmt::format("{:<24}{}", "spots not found", LostInWords(counts.lost_spots, counts.frames)));
  }
  AddTimes(report, "latency", controller.Latencies(), "from a frame's time of writing to its corrections");
  report.Add("frames_per_second", controller.FramesPerSecond(), "speed",
             fmt::format("{:.0f} frames/s", controller.FramesPerSecond()));
  report.Print(command.json);
}

/// The other end of a closed loop.
void Control(LoopArguments& command) {
  command.controller.gain = command.options.gain;
  command.controller.leak = command.options.leak;
  command.controller.engine = command.options.engine;
  auto camera = workbench::LoadSimulator<workbench::Camera>(command.folder);
  workbench::Controller controller(camera, command.controller);
  PrintEvenIfItFails([&] { Answer(controller, command); }, [&] { PrintController(controller, command); });
}

// --- Of its own

void CloseLoop(LoopArguments& command) {
  if (command.frames == 0) command.frames = kDefaultFrames;
  workbench::StagedFiles files(OutputNames(command));
  auto camera = workbench::LoadSimulator<workbench::Camera>(command.folder);
  files.RefuseToReplace(workbench::CalibrationFiles());
  command.options.exposure.detector = DetectorFor(command.detector, files);
  const workbench::Series disturbance = DisturbanceFor(command, files);
  if (command.sweep.empty()) {
    RunOne(command, camera, disturbance, files);
  } else {
    SweepGains(command, camera, disturbance, files);
  }
}

/// A verb's alternatives, and that --through takes the place of all that makes frames and files.
std::vector<std::vector<std::string>> NotWithThrough(std::vector<std::vector<std::string>> alternatives) {
  constexpr const char* kThrough = "--through";
  for (const char* const own :
       {"--delay", "--d-over-r0", "--disturbance", "--sweep", "--folder", "--use-maps", "--aot"}) {
    alternatives.push_back({own, kThrough});
  }
  std::uint32_t seed = 0;
  double noise = 0.0;
  DetectorArguments detector;
  for (const Argument& argument : ExposureArguments(noise, seed, detector)) {
    alternatives.push_back({argument.name, kThrough});
  }
  return alternatives;
}

void Loop(LoopArguments& command) {
  if (command.controller.frames.empty()) {
    CloseLoop(command);
  } else {
    Control(command);
  }
}

}  // namespace

void AddLoop(CommandLine& line) {
  const auto command = std::make_shared<LoopArguments>();
  workbench::LoopOptions& options = command->options;
  using Limits = workbench::LoopLimits;
  Argument strength = Number("--d-over-r0", "Strength of the turbulence: diameter over Fried parameter", "",
                             Limits::kDOverR0, command->d_over_r0);
  strength.alias = "--amplitude";
  Argument frames = Number("--frames", "Number of frames; without it, --through goes on until Ctrl-C", "",
                           Limits::kFrames, command->frames);
  frames.otherwise = std::to_string(kDefaultFrames);
  line.Add(
      {.name = "loop",
       .summary = "Close an integrator loop on a calibration",
       .details = R"(
For each frame: residual = disturbance - correction; the residual displaces the spots of the frame; the engine measures
its slopes; correction = (1 - leak) * correction + gain * CM * slopes, which acts after the delay. A spot that the
engine has not found has slopes of 0 there.

Writes frame.fits and slopes.fits (the last frame and its measurement), telemetry.fits (a row per frame) and loop.png
into the folder of results, replacing those of an earlier run; with --sweep, sweep.fits and sweep.png instead. A loop
that diverges is stopped, and its files end with that frame. With --aot the run is also written in the tables and
images of the Adaptive Optics Telemetry convention, which other programs read (docs/telemetry.md).

The disturbance is turbulence, with Kolmogorov's variances for the modes of the calibration's basis (Zernike modes from
tip on where the calibration does not say), or what a file says: a table "telemetry" with a column "disturbance", or an
image of doubles, 52 modes x frames, in radians.

With --through it is the controller alone, the other end of a loop that some program closes: it takes each frame of the
stream (840 x 816, int16 or uint16), measures it, and writes the new correction into the stream --corrections, which it
makes: 52 float64, modes in radians, the whole of what is to be taken from the disturbance. DIR, --engine, --gain,
--leak, --frames and --json hold for it; what makes frames or files does not, and is refused. No file is written. It
waits for the stream to be made, goes on where it is made anew, and prints its report after --frames or Ctrl-C.)",
       .list = workbench::EngineHelp(),
       .examples =
           {"quen-shs loop sensor --frames 500 --gain 0.4 --noise 50 --engine windowed:half-width=5 --folder windy",
            "quen-shs loop sensor --frames 200 --delay 2 --sweep gain=0.1:0.9:0.1",
            "quen-shs loop sensor --through frames --corrections modes --gain 0.4"},
       .arguments = Joined(
           {{CalibrationFolder(command->folder), frames,
             Number("--gain", "Gain of the integrator", "", Limits::kGain, options.gain),
             Number("--leak", "Fraction of the correction that is forgotten in each frame", "", Limits::kLeak,
                    options.leak),
             Number("--delay", "Time from a measurement to the first frame that its correction acts on", "frames",
                    Limits::kDelay, options.delay),
             strength,
             File("--disturbance", "FITS file with a disturbance to be used instead", "none", command->disturbance)},
            ExposureArguments(options.exposure.noise, options.exposure.seed, command->detector),
            {UseMaps(command->detector), Engine(options.engine),
             Checked(
                 "--sweep", "Gains to be tried one after the other", "gain=FIRST:LAST:STEP",
                 [](const std::string& text) { workbench::ParseSweep(text); }, command->sweep),
             Folder("--folder", "Folder for the results; made if missing", "DIR/loop", command->results),
             File("--aot", "FITS file for the run as Adaptive Optics Telemetry 2.0.0 has it", "none", command->aot),
             JsonFlag(command->json)},
            OnlyWith("--aot",
                     {Flag("--aot-frames", "Have every frame in that file, too: 1.4 MB each", command->aot_frames)}),
            OnlyWith("--corrections", {StreamName("--through", "Stream with the frames of another program",
                                                  command->controller.frames)}),
            OnlyWith("--through", {StreamName("--corrections", "Stream to be made for the corrections",
                                              command->controller.corrections),
                                   Number("--timeout", "Longest wait for a frame", "seconds",
                                          workbench::ControllerOptions::kTimeout, command->controller.timeout)})}),
       .alternatives = NotWithThrough(
           WithExposure({{"--d-over-r0", "--disturbance"}, {"--gain", "--sweep"}, {"--aot", "--sweep"}})),
       .action = [command] { Loop(*command); }});
}

}  // namespace quen::tool
