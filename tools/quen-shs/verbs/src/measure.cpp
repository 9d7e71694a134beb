#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>

#include "tools/quen-shs/cli/report.hpp"
#include "tools/quen-shs/verbs/src/common_arguments.hpp"
#include "tools/quen-shs/verbs/verbs.hpp"
#include "workbench/engines/engines.hpp"
#include "workbench/fits/interruption.hpp"
#include "workbench/fits/staged_file.hpp"
#include "workbench/sensor/calibration_lookup.hpp"
#include "workbench/sensor/camera.hpp"
#include "workbench/sensor/displacement_file.hpp"
#include "workbench/sensor/frame_file.hpp"
#include "workbench/sensor/measurement_file.hpp"
#include "workbench/sensor/pedestal.hpp"

namespace quen::tool {
namespace {

struct MeasureArguments {
  std::string folder;
  std::string frame;
  std::string extension;  ///< name or number; if empty, of the first image
  std::string engine = workbench::kDefaultEngine;
  double limit = workbench::kSlopeLimit;
  std::string truth;   ///< file with the true displacements; none if empty
  std::string output;  ///< file; DIR/slopes.fits if empty
  bool json = false;
};

using quen::basesim::kFrameHeight;
using quen::basesim::kFrameWidth;
using quen::centroiders::PixelSign;

/// Mean and root mean square of values that are finite.
class Moments {
 public:
  void Add(double value) {
    if (!std::isfinite(value)) {
      ++lost_;
      return;
    }
    sum_ += value;
    square_ += value * value;
    largest_ = std::max(largest_, std::abs(value));
    ++count_;
  }

  [[nodiscard]] double Mean() const { return count_ > 0 ? sum_ / static_cast<double>(count_) : 0.0; }
  [[nodiscard]] double Rms() const { return count_ > 0 ? std::sqrt(square_ / static_cast<double>(count_)) : 0.0; }
  [[nodiscard]] double Largest() const { return largest_; }  ///< magnitude
  [[nodiscard]] std::size_t Lost() const { return lost_; }   ///< values that are not finite

 private:
  double sum_ = 0.0;
  double square_ = 0.0;
  double largest_ = 0.0;
  std::size_t count_ = 0;
  std::size_t lost_ = 0;
};

constexpr double kHighestSigned = std::numeric_limits<std::int16_t>::max();

/// What is said of the pixels that were read.
struct Pixels {
  double lowest = std::numeric_limits<double>::infinity();
  double highest = -std::numeric_limits<double>::infinity();
  workbench::Pedestal pedestal;  ///< of the frame that has the largest

  void Add(const workbench::Frame& frame, const workbench::Pedestal& of_frame) {
    for (const std::uint16_t pixel : frame.pixels) {
      lowest = std::min(lowest, frame.Value(pixel));
      highest = std::max(highest, frame.Value(pixel));
    }
    if (std::abs(of_frame.share) > std::abs(pedestal.share)) pedestal = of_frame;
  }
};

/// As engines read a frame: signed, which costs nothing, if that is the same.
PixelSign SignFor(const workbench::Frame& frame) {
  const auto is_above = [&](std::uint16_t pixel) { return frame.Value(pixel) > kHighestSigned; };
  return std::ranges::any_of(frame.pixels, is_above) ? PixelSign::kUnsigned : PixelSign::kSigned;
}

/// What was measured in all frames together.
struct Results {
  Pixels pixels;
  Moments flux;
  Moments x;
  Moments y;
  Moments error_x;
  Moments error_y;
  std::size_t at_limit = 0;  ///< spots
  std::size_t spots = 0;

  void Add(const workbench::Camera& camera, double limit, const std::optional<workbench::Displacements>& truth) {
    for (const std::size_t i : workbench::UsedIndices(camera.RoisUsed())) {
      const double spot_x = camera.XSlopes()[i];
      const double spot_y = camera.YSlopes()[i];
      flux.Add(camera.Flux()[i]);
      x.Add(spot_x);
      y.Add(spot_y);
      if (std::abs(spot_x) == limit || std::abs(spot_y) == limit) ++at_limit;
      ++spots;
      if (!truth) continue;
      error_x.Add(spot_x - truth->x[i]);
      error_y.Add(spot_y - truth->y[i]);
    }
  }
};

void RequireSize(const workbench::InputFile& file, const workbench::FrameReader& frames) {
  if (frames.Count() == 0) throw std::runtime_error(file.Name() + ": expected frames, found a cube of none");
  if (frames.Width() == kFrameWidth && frames.Height() == kFrameHeight) return;
  throw std::runtime_error(fmt::format("{}: expected a frame of {} x {} pixels (columns x rows), found {} x {}",
                                       file.Name(), kFrameWidth, kFrameHeight, frames.Width(), frames.Height()));
}

void AddAxis(Report& report, const std::string& axis, const Moments& slopes) {
  report.Add(
      axis, {{"mean", slopes.Mean()}, {"rms", slopes.Rms()}, {"largest", slopes.Largest()}, {"lost", slopes.Lost()}},
      "displacement " + axis,
      fmt::format("{:+.4f} pixels mean, {:.4f} RMS, {:.4f} at most", slopes.Mean(), slopes.Rms(), slopes.Largest()) +
          (slopes.Lost() > 0 ? fmt::format("; {} are not finite", slopes.Lost()) : ""));
}

void AddError(Report& report, const std::string& axis, const Moments& errors) {
  report.Add(
      "error_" + axis, {{"bias", errors.Mean()}, {"rms", errors.Rms()}, {"worst", errors.Largest()}}, "error " + axis,
      fmt::format("{:+.2e} pixels bias, {:.2e} RMS, {:.2e} worst", errors.Mean(), errors.Rms(), errors.Largest()));
}

/// How the pixels were read, and what engines take for light that is none.
void AddPixels(Report& report, const Pixels& pixels, const std::string& engine) {
  constexpr double kNoticed = 0.05;  // by which the mean of a region loses gain
  const std::string sign = pixels.highest > kHighestSigned ? "unsigned" : "signed";
  report.Add("pixels", {{"read_as", sign}, {"lowest", pixels.lowest}, {"highest", pixels.highest}}, "pixels",
             fmt::format("{:.0f} to {:.0f}, read as {} numbers", pixels.lowest, pixels.highest, sign));
  const auto& [counts, share] = pixels.pedestal;
  report.Add("pedestal", {{"counts", counts}, {"share", share}});
  if (std::abs(share) < kNoticed || workbench::TakesPedestalAway(engine)) return;
  report.AddLine(
      fmt::format("warning: pixels between the spots have {:.0f} counts, together {:.2g} times the light of the spots, "
                  "which {} takes "
                  "for light: give it the option pedestal={:.0f} or subtract=border",
                  counts, share, engine, counts));
}

void Measure(const MeasureArguments& command) {
  const std::string output =
      command.output.empty() ? (std::filesystem::path(command.folder) / "slopes.fits").string() : command.output;
  workbench::StagedFiles files({output});
  auto camera = workbench::LoadSimulator<workbench::Camera>(command.folder);
  files.RefuseToReplace(workbench::CalibrationFiles());
  const workbench::InputFile file(command.frame);
  files.RefuseToReplace(file);
  std::optional<workbench::Displacements> truth;
  if (!command.truth.empty()) {
    const workbench::InputFile truth_file(command.truth);
    files.RefuseToReplace(truth_file);
    truth.emplace(workbench::ReadDisplacements(truth_file));
  }
  const workbench::FrameReader frames(file, command.extension);
  RequireSize(file, frames);
  Results results;
  std::vector<std::vector<workbench::SlopeRow>> slopes;
  for (std::size_t number = 0; number < frames.Count(); ++number) {
    workbench::ThrowIfInterrupted();
    const workbench::Frame frame = frames.Read(number);
    results.pixels.Add(frame, workbench::PedestalOf(frame, camera.Rois(), camera.RoisUsed()));
    camera.Load(frame.pixels);
    camera.ComputeSlopes(*workbench::MakeEngine(command.engine, SignFor(frame)), command.limit, std::nullopt);
    results.Add(camera, command.limit, truth);
    slopes.push_back(workbench::MeasuredSlopes(camera));
  }
  files.Give(output, workbench::MeasurementFile(camera, slopes));
  files.Commit();

  Report report;
  report.Add("engine", command.engine, "engine", command.engine);
  if (frames.Count() > 1) report.Add("frames", frames.Count(), "frames", std::to_string(frames.Count()));
  report.Add("flux", {{"mean", results.flux.Mean()}, {"largest", results.flux.Largest()}}, "flux",
             fmt::format("{:.0f} mean, {:.0f} at most", results.flux.Mean(), results.flux.Largest()));
  AddAxis(report, "x", results.x);
  AddAxis(report, "y", results.y);
  report.Add("at_limit", results.at_limit, "at the limit",
             fmt::format("{} of {} spots ({:g} pixels)", results.at_limit, results.spots, command.limit));
  if (truth) {
    AddError(report, "x", results.error_x);
    AddError(report, "y", results.error_y);
  }
  AddPixels(report, results.pixels, command.engine);
  report.AddFiles(files);
  report.Print(command.json);
}

/// An image of a file that is not its first.
Argument Extension(std::string& variable) {
  const auto require_name = [](const std::string& text) {
    if (text.empty()) throw std::invalid_argument("expected a name or a number, found none");
  };
  Argument extension =
      Checked("--extension", "Extension of the file that holds the frame", "NAME|NUMBER", require_name, variable);
  extension.otherwise = "the primary image, or the first extension if that is empty";
  return extension;
}

}  // namespace

void AddMeasure(CommandLine& line) {
  const auto command = std::make_shared<MeasureArguments>();
  line.Add(
      {.name = "measure",
       .summary = "Measure a frame file",
       .details = R"(
Measures the 607 used spots of a frame, simulated or from an instrument: a FITS image of 840 x 816 pixels, or a cube of
such frames. Its tiles may be compressed, and its pixels may have any type, if they are whole numbers from -32768 to
32767 or from 0 to 65535. Engines read them as signed numbers if all of them are, otherwise as unsigned ones, unless
their option says so.

Writes the tables that the library writes: rois, rois_use, and slopes with flux, x and y; of a cube a table slopes for
each frame, whose EXTVER is its number.)",
       .list = workbench::EngineHelp(),
       .examples = {"quen-shs measure sensor frame.fits --engine weighted --truth truth.fits --output slopes.fits"},
       .arguments =
           {CalibrationFolder(command->folder), Positional("FRAME", "FITS file with the frame", command->frame),
            Extension(command->extension), Engine(command->engine),
            Number("--limit", "Largest displacement; larger ones are cut to it", "pixels", {0.0, 1000.0},
                   command->limit),
            File("--truth", "File with the true displacements, as for 'frame --displacements'", "none", command->truth),
            File("--output", "FITS file for the slopes", "DIR/slopes.fits", command->output), JsonFlag(command->json)},
       .action = [command] { Measure(*command); }});
}

}  // namespace quen::tool
