#include <fmt/format.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>

#include "common/fits/fits.hpp"
#include "tools/quen-shs/src/cli/report.hpp"
#include "tools/quen-shs/src/engines/score_file.hpp"
#include "tools/quen-shs/src/files/fits_content.hpp"
#include "tools/quen-shs/src/files/slopes_file.hpp"
#include "tools/quen-shs/src/files/staged_file.hpp"
#include "tools/quen-shs/src/loop/sweep.hpp"
#include "tools/quen-shs/src/loop/telemetry.hpp"
#include "tools/quen-shs/src/pictures/errors_picture.hpp"
#include "tools/quen-shs/src/pictures/field_picture.hpp"
#include "tools/quen-shs/src/pictures/loop_picture.hpp"
#include "tools/quen-shs/src/pictures/matrix_picture.hpp"
#include "tools/quen-shs/src/pictures/sweep_picture.hpp"
#include "tools/quen-shs/src/sensor/calibration_lookup.hpp"
#include "tools/quen-shs/src/verbs/verbs.hpp"

namespace quen_shs {
namespace {

/// What a file is, and the bytes of a PNG file that shows it.
struct Content {
  const char* kind;
  std::function<std::string()> draw;
};

/// The files that are looked at.
struct Inputs {
  explicit Inputs(const ViewCommand& command) : file(command.file) {
    if (!command.slopes.empty()) slopes.emplace(command.slopes);
    if (!command.calibration.empty()) UseCalibration(command.calibration);
  }

  InputFile file;
  std::optional<InputFile> slopes;
};

std::string FileName(const InputFile& file) { return std::filesystem::path(file.Name()).filename().string(); }

/// What is to be drawn on a frame.
std::optional<Overlay> FrameOverlay(const ViewCommand& command, const Inputs& inputs) {
  std::optional<Overlay> overlay;
  if (inputs.slopes) {
    RequireTable(*inputs.slopes, "slopes");
    overlay = ReadField(*inputs.slopes).overlay;
  }
  if (!command.calibration.empty()) {
    const auto simulator = MakeSimulator();
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

std::string FramePicture(const ViewCommand& command, const Inputs& inputs) {
  const Frame frame = ReadFrame(inputs.file);
  return DrawFrame(frame, StretchByWord(command.stretch, frame.pixels), FrameOverlay(command, inputs),
                   fmt::format("{}, row 0 at the bottom, {} stretch", FileName(inputs.file), command.stretch));
}

std::string MatrixPicture(const InputFile& file, const std::vector<std::size_t>& axes) {
  const auto image = OpenFits(file, std::nullopt);
  Matrix matrix(static_cast<Eigen::Index>(axes[1]), static_cast<Eigen::Index>(axes[0]));
  Reading(file, [&] {
    quen::common::Fits::ReadImgPriv(image, matrix.data(), static_cast<std::size_t>(matrix.size()), DOUBLE_IMG, TDOUBLE,
                                    std::nullopt);
  });
  return DrawMatrix(
      matrix, fmt::format("{}: NAXIS1 = {} to the right, NAXIS2 = {} downward", FileName(file), axes[0], axes[1]));
}

std::string FieldPicture(const InputFile& file) {
  const MeasuredField field = ReadField(file);
  return DrawField(field.overlay, field.flux);
}

Content ContentOf(const ViewCommand& command, const Inputs& inputs) {
  const InputFile& file = inputs.file;
  RequireFits(file);
  if (HasTable(file, "telemetry")) return {"telemetry", [&file] { return DrawTelemetry(ReadTelemetry(file)); }};
  if (HasTable(file, "sweep")) return {"sweep", [&file] { return DrawSweep(ReadSweep(file)); }};
  if (HasTable(file, "scores")) return {"scores", [&file] { return DrawErrors(ReadScores(file)); }};
  if (HasTable(file, "slopes")) return {"slopes", [&file] { return FieldPicture(file); }};
  if (HasTable(file, "rois")) return {"regions", [&file] { return DrawRegions(ReadField(file).overlay); }};
  const auto [axes, bitpix] = quen::common::Fits::ReadImgParams(OpenFits(file, std::nullopt));
  if (axes.size() == 2 && bitpix == SHORT_IMG) {
    RequireDrawable(file.Name(), axes[0], axes[1]);  // before memory is asked for
    return {"frame", [&] { return FramePicture(command, inputs); }};
  }
  if (axes.size() == 2 && bitpix == DOUBLE_IMG && axes[0] > 0 && axes[1] > 0) {
    return {"matrix", [&file, axes = axes] { return MatrixPicture(file, axes); }};
  }
  throw std::runtime_error(
      fmt::format("{}: expected a frame (16 bits), a matrix (doubles), or a table \"slopes\", \"rois\", \"telemetry\", "
                  "\"sweep\" or "
                  "\"scores\"; found an image of {} axes with BITPIX {}",
                  file.Name(), axes.size(), bitpix));
}

/// Where the picture goes: beside the file where nothing else is said.
std::string OutputName(const ViewCommand& command, const InputFile& file) {
  if (!command.output.empty()) return command.output;
  if (!file.IsRegular()) {
    throw std::runtime_error(file.Name() + ": is no file on a disk, for a picture beside it; give --output");
  }
  return std::filesystem::path(file.Name()).replace_extension(".png").string();
}

}  // namespace

void View(const ViewCommand& command) {
  const Inputs inputs(command);
  const std::string output = OutputName(command, inputs.file);
  StagedFiles files({output});
  files.RefuseToReplace(inputs.file);
  if (inputs.slopes) files.RefuseToReplace(*inputs.slopes);
  files.RefuseToReplace(CalibrationFiles());
  const Content content = ContentOf(command, inputs);
  files.Give(output, content.draw());
  files.Commit();
  Report report;
  report.Add("kind", content.kind);
  report.AddFiles(files);
  report.Print(command.json);
}

void AddView(CommandLine& line) {
  const auto command = std::make_shared<ViewCommand>();
  line.Add(
          {"view",
           "Draw a file",
           "Looks into the file to see what it is: a frame (shades of grey, with outlines and arrows on request),\n"
           "slopes (arrows, and the light of each sub-aperture), regions, a matrix, a loop's telemetry, a gain sweep,\n"
           "or scores. Row 0 of the detector is at the bottom.",
           {"quen-shs view sensor/frame.fits --stretch zscale --calibration sensor --slopes sensor/slopes.fits",
            "quen-shs view sensor/data/M2S.fits --output m2s.png"}})
      .Required("FILE", command->file, "FITS file")
      .OneOf("--stretch", command->stretch, StretchWords(), "Shades of a frame")
      .Text("--calibration", command->calibration, "Folder with the calibration, for outlines on a frame [none]")
      .Text("--slopes", command->slopes, "File with slopes, for arrows on a frame [none]")
      .Text("--output", command->output, "PNG file [FILE with .png]")
      .Json(command->json)
      .Do([command] { View(*command); });
}

}  // namespace quen_shs
