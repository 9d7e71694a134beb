#include <fmt/format.h>

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
#include "workbench/sensor/displacement_file.hpp"
#include "workbench/sensor/frame_file.hpp"
#include "workbench/sensor/frame_measurement.hpp"
#include "workbench/sensor/mean_spot.hpp"
#include "workbench/sensor/measurement_file.hpp"

namespace quen::tool {
namespace {

struct MeasureArguments {
  std::string folder;
  std::string frame;
  std::string extension;  ///< name or number; if empty, of the first image
  workbench::MeasureOptions options;
  std::string dark_map;  ///< files with the camera's maps; none if empty
  std::string flat_map;
  std::string bad_pixels;
  std::string spot;            ///< file with the engine's template; none if empty
  std::string frames_of_spot;  ///< file with frames of whose spots the template is made; none if empty
  std::string truth;           ///< file with the true displacements; none if empty
  std::string output;          ///< file; DIR/slopes.fits if empty
  bool json = false;
};

/// A statistic of some values; null where there are none.
Json OrNull(const workbench::Moments& values, double statistic) {
  return values.AreNone() ? Json(nullptr) : Json(statistic);
}

void AddAxis(Report& report, const std::string& axis, const workbench::Moments& slopes) {
  report.Add(axis,
             {{"mean", OrNull(slopes, slopes.Mean())},
              {"rms", OrNull(slopes, slopes.Rms())},
              {"largest", OrNull(slopes, slopes.Largest())},
              {"lost", slopes.Lost()}},
             "displacement " + axis,
             (slopes.AreNone() ? "none"
                               : fmt::format("{:+.4f} pixels mean, {:.4f} RMS, {:.4f} at most", slopes.Mean(),
                                             slopes.Rms(), slopes.Largest())) +
                 (slopes.Lost() > 0 ? fmt::format("; {} are not finite", slopes.Lost()) : ""));
}

void AddError(Report& report, const std::string& axis, const workbench::Moments& errors) {
  report.Add("error_" + axis,
             {{"bias", OrNull(errors, errors.Mean())},
              {"rms", OrNull(errors, errors.Rms())},
              {"worst", OrNull(errors, errors.Largest())}},
             "error " + axis,
             errors.AreNone() ? "none"
                              : fmt::format("{:+.2e} pixels bias, {:.2e} RMS, {:.2e} worst", errors.Mean(),
                                            errors.Rms(), errors.Largest()));
}

/// Spots whose tops are cut off; a warning of them where the engine takes what is left for the spot.
void AddSaturation(Report& report, const workbench::Saturation& saturation, const std::string& engine) {
  const auto& [counts, spots] = saturation;
  report.Add("saturated", {{"spots", spots}, {"counts", spots > 0 ? Json(counts) : Json(nullptr)}});
  if (spots == 0 || workbench::LeavesSaturatedOut(engine)) return;
  report.AddLine(fmt::format(
      "warning: {} spots have pixels of {:.0f} counts, which must be the camera's ceiling, and what is above "
      "it is lost: only maximum-likelihood can do without them, with the option ceiling={:.0f}",
      spots, counts, counts));
}

/// A warning of pixels that are in no map and draw spots away.
void AddHotPixels(Report& report, const workbench::HotPixels& hot) {
  report.Add("hot_pixels", {{"pixels", hot.pixels}, {"spots", hot.spots}});
  if (hot.pixels == 0) return;
  const std::string place = fmt::format("at column {} and row {} (from 0)", hot.column, hot.row);
  report.AddLine(
      hot.pixels == 1
          ? fmt::format("warning: a pixel {} is far from the spot and much brighter than those around it, as "
                        "hot ones are: name it by --bad-pixels",
                        place)
          : fmt::format("warning: {} pixels, the brightest {}, are far from the spots and much brighter than "
                        "those around them, as hot ones are: name them by --bad-pixels",
                        hot.pixels, place));
}

/// How the pixels were read, and what engines take for light that is none.
void AddPixels(Report& report, const workbench::MeasuredFrames& measured, const std::string& engine) {
  const auto& [lowest, highest] = measured.pixels;
  const std::string sign = measured.pixels.Sign() == quen::centroiders::PixelSign::kUnsigned ? "unsigned" : "signed";
  report.Add("pixels", {{"read_as", sign}, {"lowest", lowest}, {"highest", highest}}, "pixels",
             fmt::format("{:.0f} to {:.0f}, read as {} numbers", lowest, highest, sign));
  if (measured.blank > 0) {
    report.AddLine(fmt::format("warning: {} pixels have no value, and are taken for bad ones", measured.blank));
  }
  report.Add("blank_pixels", measured.blank);
  AddPedestal(report, measured.pedestal, engine);
  AddSaturation(report, measured.saturation, engine);
  AddHotPixels(report, measured.hot);
}

/// What a file has, if one is named.
template <typename Content>
Content ReadIfNamed(const std::string& name, Content (*read)(const workbench::InputFile&),
                    const workbench::StagedFiles& files) {
  if (name.empty()) return {};
  const workbench::InputFile file(name);
  files.RefuseToReplace(file);
  return read(file);
}

/// What the engine is to look for, if anything is said of it.
std::optional<workbench::SpotTemplate> SpotOf(const MeasureArguments& command, const workbench::PixelMaps& maps,
                                              workbench::Camera& camera, const workbench::StagedFiles& files) {
  if (!command.spot.empty()) return ReadIfNamed(command.spot, workbench::ReadTemplate, files);
  if (command.frames_of_spot.empty()) return std::nullopt;
  const workbench::InputFile file(command.frames_of_spot);
  files.RefuseToReplace(file);
  return workbench::MeanSpot(workbench::FrameReader(file, command.extension), maps, camera);
}

/// @throws std::runtime_error  a template is given, and the engine looks for none
void RequireUseOfTemplate(const MeasureArguments& command) {
  if ((command.spot.empty() && command.frames_of_spot.empty()) || workbench::TakesTemplate(command.options.engine))
    return;
  throw std::runtime_error(std::string(command.spot.empty() ? "--template-from" : "--template") +
                           ": expected --engine correlation, which looks for a template, found " +
                           command.options.engine);
}

void Measure(const MeasureArguments& command) {
  RequireUseOfTemplate(command);
  const std::string output =
      command.output.empty() ? (std::filesystem::path(command.folder) / "slopes.fits").string() : command.output;
  workbench::StagedFiles files({output});
  auto camera = workbench::LoadSimulator<workbench::Camera>(command.folder);
  files.RefuseToReplace(workbench::CalibrationFiles());
  const workbench::InputFile file(command.frame);
  files.RefuseToReplace(file);
  workbench::MeasureOptions options = command.options;
  options.maps = {ReadIfNamed(command.dark_map, workbench::ReadDarkMap, files),
                  ReadIfNamed(command.flat_map, workbench::ReadFlatMap, files),
                  ReadIfNamed(command.bad_pixels, workbench::ReadBadPixels, files)};
  options.spot = SpotOf(command, options.maps, camera, files);
  if (!command.truth.empty()) options.truth = ReadIfNamed(command.truth, workbench::ReadDisplacements, files);
  const workbench::FrameReader frames(file, command.extension);
  const workbench::MeasuredFrames measured = workbench::MeasureFrames(frames, camera, options);
  files.Give(output, workbench::MeasurementFile(camera, measured.slopes, frames));
  files.Commit();

  Report report;
  report.Add("engine", options.engine, "engine", options.engine);
  if (frames.Count() > 1) report.Add("frames", frames.Count(), "frames", std::to_string(frames.Count()));
  report.Add("flux",
             {{"mean", OrNull(measured.flux, measured.flux.Mean())},
              {"largest", OrNull(measured.flux, measured.flux.Largest())}},
             "flux",
             measured.flux.AreNone()
                 ? "none"
                 : fmt::format("{:.0f} mean, {:.0f} at most", measured.flux.Mean(), measured.flux.Largest()));
  AddAxis(report, "x", measured.x);
  AddAxis(report, "y", measured.y);
  report.Add("at_limit", measured.at_limit, "at the limit",
             fmt::format("{} of {} spots ({:g} pixels)", measured.at_limit, measured.spots, options.limit));
  report.Add("without_light", measured.without_light);
  if (measured.without_light > 0) {
    report.AddLine(fmt::format("warning: {} of {} spots are without light", measured.without_light, measured.spots));
  }
  if (options.truth) {
    AddError(report, "x", measured.error_x);
    AddError(report, "y", measured.error_y);
  }
  AddPixels(report, measured, options.engine);
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
Measures the 607 used spots of a frame, simulated or from an instrument: a FITS image of 840 x 816 pixels, or a cube of
such frames. Its tiles may be compressed, or the whole file by gzip, and its pixels may have any type, if they are whole
numbers from -32768 to 32767 or from 0 to 65535. Engines read them as signed numbers if all of them are, otherwise as unsigned ones, unless
their option says so. Pixels without a value, which are NaN or what BLANK in the header says, are bad ones.

With maps of the camera each pixel is corrected before an engine sees it, and bad ones do not count: an engine without
weights takes the mean of their neighbours. A map or a template that is not in the primary image is the only image of
its size among the extensions; tiles of it may be compressed.

With --template the engine correlation looks for a spot of your own: its centre is the middle of the image, whose sides
are odd. With --template-from it looks for the mean of all used spots of other frames, or of the same ones, each
resampled around its centre of gravity.

Writes the tables that the library writes: rois, rois_use, and slopes with flux, x and y; of a cube a table slopes for
each frame, whose EXTVER is its number.)",
       .list = workbench::EngineHelp(),
       .examples = {"quen-shs measure sensor frame.fits --engine weighted --truth truth.fits --output slopes.fits"},
       .arguments =
           {CalibrationFolder(command->folder), Positional("FRAME", "FITS file with the frame", command->frame),
            Extension("Extension that holds the frame, and those of --template-from", command->extension),
            Engine(command->options.engine),
            File("--dark-map", "FITS image of counts without light, which are subtracted", "none", command->dark_map),
            File("--flat-map", "FITS image of the relative response, which light is divided by", "none",
                 command->flat_map),
            File("--bad-pixels", "FITS image that is not 0 where a pixel does not count", "none", command->bad_pixels),
            File("--template", "FITS image of the spot that the engine correlation looks for", "the drawn spot",
                 command->spot),
            File("--template-from", "Frames, as FRAME, whose mean spot it looks for instead", "none",
                 command->frames_of_spot),
            Number("--limit", "Largest displacement; larger ones are cut to it", "pixels", {0.0, 1000.0},
                   command->options.limit),
            File("--truth", "File with the true displacements, as for 'frame --displacements'", "none", command->truth),
            File("--output", "FITS file for the slopes", "DIR/slopes.fits", command->output), JsonFlag(command->json)},
       .alternatives = {{"--template", "--template-from"}},
       .action = [command] { Measure(*command); }});
}

}  // namespace quen::tool
