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

using quen::common::Fits::FitsFile;

/// Draws into a PNG file.
using Drawer = std::function<void(const std::string& picture)>;

/// What a file is, and how it is drawn.
struct Content {
  const char* kind;
  Drawer draw;
};

/// What is to be drawn on a frame.
std::optional<Overlay> FrameOverlay(const ViewCommand& command) {
  std::optional<Overlay> overlay;
  if (!command.slopes.empty()) {
    RequireTable(command.slopes, "slopes");
    overlay = ReadField(command.slopes).overlay;
  }
  if (!command.calibration.empty()) {
    UseCalibration(command.calibration);
    const quen::shssim::ShsSimulator simulator;
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

Content FrameContent(const ViewCommand& command) {
  return {"frame", [command](const std::string& picture) {
            const Frame frame = ReadFrame(command.file);
            DrawFrame(picture, frame, StretchByWord(command.stretch, frame.pixels), FrameOverlay(command),
                      fmt::format("{}, row 0 at the bottom, {} stretch",
                                  std::filesystem::path(command.file).filename().string(), command.stretch));
          }};
}

Content MatrixContent(const std::string& path, const std::vector<std::size_t>& axes) {
  return {"matrix", [path, axes](const std::string& picture) {
            Matrix matrix(static_cast<Eigen::Index>(axes[1]), static_cast<Eigen::Index>(axes[0]));
            quen::common::Fits::ReadImgPriv(FitsFile(path, std::nullopt), matrix.data(),
                                            static_cast<std::size_t>(matrix.size()), DOUBLE_IMG, TDOUBLE, std::nullopt);
            DrawMatrix(picture, matrix,
                       fmt::format("{}: NAXIS1 = {} to the right, NAXIS2 = {} downward",
                                   std::filesystem::path(path).filename().string(), axes[0], axes[1]));
          }};
}

Content ContentOf(const ViewCommand& command) {
  const std::string& path = command.file;
  RequireFits(path);
  if (HasTable(path, "telemetry")) {
    return {"telemetry", [path](const std::string& picture) { DrawTelemetry(picture, ReadTelemetry(path)); }};
  }
  if (HasTable(path, "sweep")) {
    return {"sweep", [path](const std::string& picture) { DrawSweep(picture, ReadSweep(path)); }};
  }
  if (HasTable(path, "scores")) {
    return {"scores", [path](const std::string& picture) { DrawErrors(picture, ReadScores(path)); }};
  }
  if (HasTable(path, "slopes")) {
    return {"slopes", [path](const std::string& picture) {
              const MeasuredField field = ReadField(path);
              DrawField(picture, field.overlay, field.flux);
            }};
  }
  if (HasTable(path, "rois")) {
    return {"regions", [path](const std::string& picture) { DrawRegions(picture, ReadField(path).overlay); }};
  }
  const auto [axes, bitpix] = quen::common::Fits::ReadImgParams(FitsFile(path, std::nullopt));
  if (axes.size() == 2 && bitpix == SHORT_IMG) {
    RequireDrawable(path, axes[0], axes[1]);  // before memory is asked for
    return FrameContent(command);
  }
  if (axes.size() == 2 && bitpix == DOUBLE_IMG && axes[0] > 0 && axes[1] > 0) return MatrixContent(path, axes);
  throw std::runtime_error(
      fmt::format("{}: expected a frame (16 bits), a matrix (doubles), or a table \"slopes\", \"rois\", \"telemetry\", "
                  "\"sweep\" or "
                  "\"scores\"; found an image of {} axes with BITPIX {}",
                  path, axes.size(), bitpix));
}

}  // namespace

void View(const ViewCommand& command) {
  const Content content = ContentOf(command);
  std::string output = command.output;
  if (output.empty()) output = std::filesystem::path(command.file).replace_extension(".png").string();
  std::vector<StagedFile> files;
  content.draw(files.emplace_back(output).Path());
  CheckAndCommit(files);
  Report report;
  report.Add("kind", content.kind);
  report.AddFile(output);
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
