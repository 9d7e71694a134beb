#include <fmt/format.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "common/fits/fits.hpp"
#include "tools/quen-shs/cli/report.hpp"
#include "tools/quen-shs/verbs/src/common_arguments.hpp"
#include "tools/quen-shs/verbs/verbs.hpp"
#include "workbench/detector/map_file.hpp"
#include "workbench/engines/score_file.hpp"
#include "workbench/fits/content.hpp"
#include "workbench/fits/staged_file.hpp"
#include "workbench/loop/sweep.hpp"
#include "workbench/loop/telemetry.hpp"
#include "workbench/pictures/errors_picture.hpp"
#include "workbench/pictures/field_picture.hpp"
#include "workbench/pictures/frame_picture.hpp"
#include "workbench/pictures/loop_picture.hpp"
#include "workbench/pictures/matrix_picture.hpp"
#include "workbench/pictures/mode_picture.hpp"
#include "workbench/pictures/stretch.hpp"
#include "workbench/pictures/sweep_picture.hpp"
#include "workbench/sensor/calibration_lookup.hpp"
#include "workbench/sensor/frame_file.hpp"
#include "workbench/sensor/geometry.hpp"
#include "workbench/sensor/matrix_file.hpp"
#include "workbench/sensor/measurement_file.hpp"
#include "workbench/sensor/sensor_tables.hpp"
#include "workbench/telemetry/aot.hpp"

namespace quen::tool {
namespace {

using quen::workbench::kFrameHeight;
using quen::workbench::kFrameWidth;
using quen::workbench::kNumModes;
using quen::workbench::kNumSlopes;

constexpr int kMostPlanes = 1000000;

struct ViewArguments {
  std::string file;
  std::string calibration;  ///< folder, for outlines on a frame and the places of slopes; none if empty
  std::string slopes;       ///< file, for the arrows on a frame; none if empty
  std::string extension;    ///< of a frame, name or number; if empty, of the first image
  std::size_t plane = 1;    ///< of a cube of frames, counted from 1
  std::string stretch = "auto";
  std::string png;  ///< file; if empty, FILE with .png for its extension
  bool json = false;
};

/// What a file is, and the bytes of a PNG file that shows it.
struct Content {
  const char* kind;
  std::function<std::string()> draw;
  std::size_t planes = 0;    ///< of a cube of frames
  std::string regions = {};  ///< where the places of a matrix's slopes are from; empty where none are drawn
  std::string words = {};    ///< what else is to be said; empty if nothing is
};

/// The files that are looked at.
struct Inputs {
  explicit Inputs(const ViewArguments& command) : file(command.file) {
    if (!command.slopes.empty()) slopes.emplace(command.slopes);
    if (!command.calibration.empty()) workbench::UseCalibration(command.calibration);
  }

  workbench::InputFile file;
  std::optional<workbench::InputFile> slopes;
  std::optional<workbench::InputFile> regions;  ///< of the calibration that a matrix is in, once they are looked at
};

std::string FileName(const workbench::InputFile& file) {
  return std::filesystem::path(file.Name()).filename().string();
}

/// What is to be drawn on a frame.
std::optional<workbench::Overlay> FrameOverlay(const ViewArguments& command, const Inputs& inputs) {
  std::optional<workbench::Overlay> overlay;
  if (inputs.slopes) {
    workbench::RequireTable(*inputs.slopes, workbench::kSlopeTable);
    overlay = workbench::ReadField(*inputs.slopes).overlay;
  }
  if (!command.calibration.empty()) {
    const auto simulator = workbench::MakeSimulator();
    overlay = {simulator.Rois(), simulator.RoisUsed(), overlay ? overlay->displacements : std::nullopt};
  }
  return overlay;
}

/// @throws std::runtime_error  a frame of these axes has no pixels, or more than anyone could see
void RequireDrawable(const std::string& path, std::size_t width, std::size_t height) {
  constexpr std::size_t kLargest = 8000;  // pixels along an axis
  if (width > 0 && height > 0 && width <= kLargest && height <= kLargest) return;
  throw std::runtime_error(
      fmt::format("{}: expected 1 to {} pixels along either axis, found {} x {}", path, kLargest, width, height));
}

std::string PlaneInWords(const ViewArguments& command, std::size_t planes) {
  return fmt::format("{} of {}", command.plane, planes);
}

std::string FramePicture(const ViewArguments& command, const Inputs& inputs, std::size_t planes) {
  const workbench::FrameReader frames(inputs.file, command.extension);
  const workbench::Frame frame = frames.Read(command.plane - 1);
  const std::string plane = planes > 0 ? ", plane " + PlaneInWords(command, planes) : "";
  return workbench::DrawFrame(frame, workbench::StretchByWord(command.stretch, frame), FrameOverlay(command, inputs),
                              fmt::format("{}{}, row 0 at the bottom, {} stretch", FileName(inputs.file), plane,
                                          workbench::ResolvedStretch(command.stretch, frame)));
}

/// A frame, or a plane of a cube of frames.
Content FrameContent(const ViewArguments& command, const Inputs& inputs, const std::vector<std::size_t>& axes) {
  RequireDrawable(inputs.file.Name(), axes[0], axes[1]);  // before memory is asked for
  const std::size_t planes = axes.size() == 3 ? axes[2] : 0;
  if (axes.size() == 3 && command.plane > planes) {
    throw std::runtime_error(fmt::format("{}: expected a plane {} of the cube, found {} of them", inputs.file.Name(),
                                         command.plane, planes));
  }
  return {"frame", [&command, &inputs, planes] { return FramePicture(command, inputs, planes); }, planes};
}

std::string MatrixPicture(const workbench::InputFile& file, const std::vector<std::size_t>& axes) {
  return workbench::DrawMatrix(
      workbench::ReadMatrix(file),
      fmt::format("{}: NAXIS1 = {} to the right, NAXIS2 = {} downward", FileName(file), axes[0], axes[1]));
}

/// The sub-apertures whose slopes a calibration's matrix holds, and where they are from, in words.
struct Sensor {
  workbench::Overlay overlay;
  std::string words;
};

/// @throws std::runtime_error  the file does not hold regions and flags of a calibration
Sensor SensorIn(const workbench::InputFile& file) {
  workbench::RequireTable(file, workbench::kRegionTable);
  workbench::RequireTable(file, workbench::kFlagTable);
  return {workbench::ReadField(file).overlay, file.Name()};
}

/// As the given calibration has them, or the one that the matrix is in; else as a synthetic sensor has them.
Sensor SensorOf(const ViewArguments& command, Inputs& inputs) {
  if (!command.calibration.empty()) return SensorIn(workbench::CalibrationFiles().back());
  const std::string beside = std::filesystem::path(command.file).replace_filename("shs_rois.fits").string();
  std::string words = "a synthetic sensor";
  std::error_code error;
  if (inputs.file.IsRegular() && std::filesystem::is_regular_file(beside, error)) {
    try {
      return SensorIn(inputs.regions.emplace(beside));
    } catch (const std::runtime_error& failure) {
      if (workbench::IsFailureToOpen(failure)) throw;
      words += "; " + beside + " cannot be used";
    }
  }
  workbench::Overlay overlay = workbench::ReadField(inputs.file).overlay;
  overlay.used = workbench::UsedFlags({});
  return {std::move(overlay), words};
}

/// Slopes of the modes in one of a calibration's two matrices.
std::string ModePicture(const workbench::InputFile& file, const workbench::Matrix& matrix, const Sensor& sensor) {
  const bool is_m2s = matrix.rows() == kNumSlopes;
  return workbench::DrawModes(
      is_m2s ? matrix : workbench::Matrix(matrix.transpose()), sensor.overlay,
      fmt::format("{}: {} of the first modes; regions of {}", FileName(file), is_m2s ? "slopes" : "rows", sensor.words),
      is_m2s ? "px/rad" : "rad/px");
}

Content MatrixContent(const ViewArguments& command, Inputs& inputs, const std::vector<std::size_t>& axes) {
  const bool is_m2s = axes[0] == kNumModes && axes[1] == kNumSlopes;
  const bool is_cm = axes[0] == kNumSlopes && axes[1] == kNumModes;
  const workbench::InputFile& file = inputs.file;
  if (!is_m2s && !is_cm) return {"matrix", [&file, axes] { return MatrixPicture(file, axes); }};
  const Sensor sensor = SensorOf(command, inputs);
  return {"matrix", [&file, axes, sensor] { return ModePicture(file, workbench::ReadMatrix(file), sensor); }, 0,
          sensor.words};
}

std::string FieldPicture(const workbench::InputFile& file) {
  const workbench::MeasuredField field = workbench::ReadField(file);
  return workbench::DrawField(field.overlay, field.flux);
}

Content ContentOf(const ViewArguments& command, Inputs& inputs) {
  const workbench::InputFile& file = inputs.file;
  workbench::RequireFits(file);
  if (!command.extension.empty()) {
    const workbench::FrameReader frames(file, command.extension);
    return FrameContent(command, inputs, frames.Axes());
  }
  if (workbench::IsAot(file)) {
    return {"telemetry", [&file] { return workbench::DrawTelemetry(workbench::ReadAotRecords(file)); }, 0, "",
            workbench::InWords(workbench::ExamineAot(file))};
  }
  if (workbench::HasTable(file, workbench::kTelemetryTable))
    return {"telemetry", [&file] { return workbench::DrawTelemetry(workbench::ReadTelemetry(file)); }};
  if (workbench::HasTable(file, workbench::kSweepTable))
    return {"sweep", [&file] { return workbench::DrawSweep(workbench::ReadSweep(file)); }};
  if (workbench::HasTable(file, workbench::kScoreTable))
    return {"scores", [&file] { return workbench::DrawErrors(workbench::ReadScores(file)); }};
  if (workbench::HasTable(file, workbench::kSlopeTable)) return {"slopes", [&file] { return FieldPicture(file); }};
  if (workbench::HasTable(file, workbench::kRegionTable))
    return {"regions", [&file] { return workbench::DrawRegions(workbench::ReadField(file).overlay); }};
  const bool is_primary = !quen::common::Fits::ReadImgParams(workbench::OpenFits(file, std::nullopt)).first.empty();
  const auto [axes, bitpix] = quen::common::Fits::ReadImgParams(workbench::OpenImage(file, ""));
  if ((axes.size() == 2 && bitpix == SHORT_IMG) || axes.size() == 3) return FrameContent(command, inputs, axes);
  if (axes == std::vector<std::size_t>{kFrameWidth, kFrameHeight}) {
    return {"map", [&file] { return workbench::DrawMap(workbench::ReadMap(file), kFrameWidth, FileName(file)); }};
  }
  if (is_primary && axes.size() == 2 && bitpix == DOUBLE_IMG && axes[0] > 0 && axes[1] > 0) {
    return MatrixContent(command, inputs, axes);
  }
  throw std::runtime_error(fmt::format(
      "{}: expected a frame (16 bits), a cube of frames, a map of its pixels, a matrix (doubles), or a table "
      "\"{}\", \"{}\", \"{}\", \"{}\" or \"{}\"; found an image of {} axes with BITPIX {}",
      file.Name(), workbench::kSlopeTable, workbench::kRegionTable, workbench::kTelemetryTable, workbench::kSweepTable,
      workbench::kScoreTable, axes.size(), bitpix));
}

/// Where the picture goes: beside the file where nothing else is said.
std::string OutputName(const ViewArguments& command, const workbench::InputFile& file) {
  if (!command.png.empty()) return command.png;
  if (!file.IsRegular()) {
    throw std::runtime_error(file.Name() +
                             ": is not a file on a disk, so there is no place beside it for the picture; give --png");
  }
  return std::filesystem::path(file.Name()).replace_extension(".png").string();
}

/// @throws std::runtime_error  an argument would do nothing for what the file is
void RequireUse(const ViewArguments& command, const Content& content) {
  const bool is_frame = content.kind == std::string_view("frame");
  const auto require = [&](const char* argument, bool is_used, const char* expected) {
    if (is_used) return;
    throw std::runtime_error(
        fmt::format("{}: expected {}, found {} in {}", argument, expected, content.kind, command.file));
  };
  require("--stretch", is_frame || command.stretch == ViewArguments().stretch, "a frame");
  require("--plane", content.planes > 0 || command.plane == ViewArguments().plane, "a cube of frames");
  require("--slopes", is_frame || command.slopes.empty(), "a frame");
  require("--calibration", is_frame || command.calibration.empty() || !content.regions.empty(), "a frame, M2S or CM");
}

void View(const ViewArguments& command) {
  Inputs inputs(command);
  const std::string output = OutputName(command, inputs.file);
  workbench::StagedFiles files({output});
  files.RefuseToReplace(inputs.file);
  if (inputs.slopes) files.RefuseToReplace(*inputs.slopes);
  files.RefuseToReplace(workbench::CalibrationFiles());
  const Content content = ContentOf(command, inputs);
  RequireUse(command, content);
  if (inputs.regions) files.RefuseToReplace(*inputs.regions);
  files.Give(output, content.draw());
  files.Commit();
  Report report;
  report.Add("kind", content.kind);
  if (content.planes > 0) {
    report.Add("plane", command.plane, "plane", PlaneInWords(command, content.planes));
    report.Add("planes", content.planes);
  }
  if (!content.regions.empty()) report.Add("regions", content.regions, "regions", content.regions);
  if (!content.words.empty()) report.Add("content", content.words, "content", content.words);
  report.AddFiles(files);
  report.Print(command.json);
}

}  // namespace

void AddView(CommandLine& line) {
  const auto command = std::make_shared<ViewArguments>();
  line.Add(
      {.name = "view",
       .summary = "Draw a file",
       .details = R"(
Looks into the file to see what it is: a frame or one of a cube of frames (shades of grey, with outlines and arrows on
request), a map of the detector's pixels, slopes (arrows, and the light of each sub-aperture), regions, a matrix, a
loop's telemetry (also that of 'loop --aot'), a gain sweep, or scores. Row 0 of the detector is at the bottom.

Of M2S and CM the slopes of the first modes are drawn as arrows over the pupil, and the size of every mode. Where the
sub-apertures are is read from the calibration that is given, or from shs_rois.fits beside the matrix; without these, they
are where 'calibrate' puts them.)",
       .examples = {"quen-shs view sensor/frame.fits --stretch zscale --calibration sensor --slopes sensor/slopes.fits",
                    "quen-shs view sensor/data/M2S.fits --png m2s.png"},
       .arguments = {Positional("FILE", "FITS file", command->file),
                     Extension("Extension that holds the frame", command->extension),
                     Number("--plane", "Frame of a cube, counted from 1", "", {1.0, kMostPlanes}, command->plane),
                     OneOf("--stretch",
                           "Shades of a frame; auto is percentile for counts from 0 to 65535, log for others",
                           workbench::StretchWords(), command->stretch),
                     Folder("--calibration",
                            "Folder with the calibration, for outlines on a frame and the places of slopes",
                            "none; of a matrix, the one that it is in", command->calibration),
                     File("--slopes", "File with slopes, for arrows on a frame", "none", command->slopes),
                     File("--png", "PNG file for the picture", "FILE with .png for its extension", command->png),
                     JsonFlag(command->json)},
       .action = [command] { View(*command); }});
}

}  // namespace quen::tool
