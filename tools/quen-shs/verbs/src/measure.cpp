#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>

#include "tools/quen-shs/cli/report.hpp"
#include "tools/quen-shs/verbs/src/common_arguments.hpp"
#include "tools/quen-shs/verbs/verbs.hpp"
#include "workbench/engines/engines.hpp"
#include "workbench/fits/staged_file.hpp"
#include "workbench/sensor/calibration_lookup.hpp"
#include "workbench/sensor/camera.hpp"
#include "workbench/sensor/displacement_file.hpp"
#include "workbench/sensor/frame_file.hpp"
#include "workbench/sensor/measurement_file.hpp"

namespace quen::tool {
namespace {

struct MeasureArguments {
  std::string folder;
  std::string frame;
  std::string engine = workbench::kDefaultEngine;
  double limit = workbench::kSlopeLimit;
  std::string truth;   ///< file with the true displacements; none if empty
  std::string output;  ///< file; DIR/slopes.fits if empty
  bool json = false;
};

using quen::basesim::kFrameHeight;
using quen::basesim::kFrameWidth;

/// Mean and root mean square of values that are finite.
struct Moments {
  double mean = 0.0;
  double rms = 0.0;
  double largest = 0.0;  ///< magnitude
  std::size_t lost = 0;  ///< values that are not finite

  template <typename Value>
  static Moments Of(const std::vector<std::size_t>& indices, const Value& value) {
    Moments moments;
    double count = 0.0;
    for (const std::size_t i : indices) {
      const double v = value(i);
      if (!std::isfinite(v)) {
        ++moments.lost;
        continue;
      }
      moments.mean += v;
      moments.rms += v * v;
      moments.largest = std::max(moments.largest, std::abs(v));
      count += 1.0;
    }
    if (count > 0.0) {
      moments.mean /= count;
      moments.rms = std::sqrt(moments.rms / count);
    }
    return moments;
  }
};

void Load(workbench::Camera& camera, const workbench::InputFile& file) {
  const workbench::Frame frame = workbench::ReadFrame(file);
  if (frame.width != kFrameWidth || frame.height != kFrameHeight) {
    throw std::runtime_error(fmt::format("{}: expected a frame of {} x {} pixels (columns x rows), found {} x {}",
                                         file.Name(), kFrameWidth, kFrameHeight, frame.width, frame.height));
  }
  workbench::RequireSignedRange(file, frame);
  camera.Load(frame.pixels);
}

void AddAxis(Report& report, const std::string& axis, const Moments& slopes) {
  report.Add(axis, {{"mean", slopes.mean}, {"rms", slopes.rms}, {"largest", slopes.largest}, {"lost", slopes.lost}},
             "displacement " + axis,
             fmt::format("{:+.4f} pixels mean, {:.4f} RMS, {:.4f} at most", slopes.mean, slopes.rms, slopes.largest) +
                 (slopes.lost > 0 ? fmt::format("; {} are not finite", slopes.lost) : ""));
}

void AddError(Report& report, const std::string& axis, const Moments& errors) {
  report.Add("error_" + axis, {{"bias", errors.mean}, {"rms", errors.rms}, {"worst", errors.largest}}, "error " + axis,
             fmt::format("{:+.2e} pixels bias, {:.2e} RMS, {:.2e} worst", errors.mean, errors.rms, errors.largest));
}

void Measure(const MeasureArguments& command) {
  const std::string output =
      command.output.empty() ? (std::filesystem::path(command.folder) / "slopes.fits").string() : command.output;
  workbench::StagedFiles files({output});
  auto simulator = workbench::LoadSimulator<workbench::Camera>(command.folder);
  files.RefuseToReplace(workbench::CalibrationFiles());
  const workbench::InputFile frame(command.frame);
  files.RefuseToReplace(frame);
  std::optional<workbench::Displacements> truth;
  if (!command.truth.empty()) {
    const workbench::InputFile file(command.truth);
    files.RefuseToReplace(file);
    truth.emplace(workbench::ReadDisplacements(file));
  }
  Load(simulator, frame);
  simulator.ComputeSlopes(*workbench::MakeEngine(command.engine), command.limit, std::nullopt);
  files.Give(output, workbench::MeasurementFile(simulator));
  files.Commit();

  const std::vector<std::size_t> used = workbench::UsedIndices(simulator.RoisUsed());
  const std::vector<double>& x = simulator.XSlopes();
  const std::vector<double>& y = simulator.YSlopes();
  const auto at_limit = std::ranges::count_if(
      used, [&](std::size_t i) { return std::abs(x[i]) == command.limit || std::abs(y[i]) == command.limit; });
  const Moments flux = Moments::Of(used, [&](std::size_t i) { return simulator.Flux()[i]; });
  Report report;
  report.Add("engine", command.engine, "engine", command.engine);
  report.Add("flux", {{"mean", flux.mean}, {"largest", flux.largest}}, "flux",
             fmt::format("{:.0f} mean, {:.0f} at most", flux.mean, flux.largest));
  AddAxis(report, "x", Moments::Of(used, [&](std::size_t i) { return x[i]; }));
  AddAxis(report, "y", Moments::Of(used, [&](std::size_t i) { return y[i]; }));
  report.Add("at_limit", at_limit, "at the limit",
             fmt::format("{} of {} spots ({:g} pixels)", at_limit, used.size(), command.limit));
  if (truth) {
    AddError(report, "x", Moments::Of(used, [&](std::size_t i) { return x[i] - truth->x[i]; }));
    AddError(report, "y", Moments::Of(used, [&](std::size_t i) { return y[i] - truth->y[i]; }));
  }
  report.AddFiles(files);
  report.Print(command.json);
}

}  // namespace

void AddMeasure(CommandLine& line) {
  const auto command = std::make_shared<MeasureArguments>();
  line.Add(
      {.name = "measure",
       .summary = "Measure a frame file",
       .details = R"(
Measures the 607 used spots of a frame, simulated or from an instrument: a FITS image of 840 x 816 pixels with 16
bits, signed, or unsigned by BZERO = 32768 with values up to 32767.

Writes the tables that the library writes: rois, rois_use, and slopes with flux, x and y.)",
       .list = workbench::EngineHelp(),
       .examples = {"quen-shs measure sensor frame.fits --engine weighted --truth truth.fits --output slopes.fits"},
       .arguments =
           {CalibrationFolder(command->folder), Positional("FRAME", "FITS file with the frame", command->frame),
            Engine(command->engine),
            Number("--limit", "Largest displacement; larger ones are cut to it", "pixels", 0.0, 1000.0, command->limit),
            File("--truth", "File with the true displacements, as for 'frame --displacements'", "none", command->truth),
            File("--output", "FITS file for the slopes", "DIR/slopes.fits", command->output), JsonFlag(command->json)},
       .action = [command] { Measure(*command); }});
}

}  // namespace quen::tool
