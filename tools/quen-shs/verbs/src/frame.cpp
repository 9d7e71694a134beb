#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <memory>
#include <optional>

#include "tools/quen-shs/cli/report.hpp"
#include "tools/quen-shs/verbs/src/common_arguments.hpp"
#include "tools/quen-shs/verbs/verbs.hpp"
#include "workbench/fits/staged_file.hpp"
#include "workbench/pictures/frame_picture.hpp"
#include "workbench/sensor/calibration_lookup.hpp"
#include "workbench/sensor/displacement_file.hpp"
#include "workbench/sensor/frame_file.hpp"
#include "workbench/sensor/matrices.hpp"
#include "workbench/sensor/mode_list.hpp"
#include "workbench/sensor/shapes.hpp"

namespace quen::tool {
namespace {

struct FrameArguments {
  std::string folder;
  std::string displacements;  ///< file; none if empty
  std::string modes;          ///< MODE=RADIANS,…; none if empty
  std::string shape;          ///< NAME:PIXELS; none if empty. At most one of the three; without any, no displacements.
  workbench::Exposure exposure;
  DetectorArguments detector;
  std::string output;  ///< file; DIR/frame.fits if empty
  std::string truth;   ///< file for the displacements; none if empty
  std::string png;     ///< file; none if empty
  bool json = false;
};

using quen::shssim::ShsSimulator;

workbench::Displacements DisplacementsOfModes(const std::string& list, const ShsSimulator& simulator) {
  workbench::Displacements displacements;
  workbench::SetUsedDisplacements(workbench::M2sOf(simulator) * workbench::ParseModes(list),
                                  workbench::UsedIndices(simulator.RoisUsed()), displacements);
  return displacements;
}

workbench::Displacements DisplacementsFor(const FrameArguments& command,
                                          const std::optional<workbench::InputFile>& file,
                                          const ShsSimulator& simulator) {
  if (file) return workbench::ReadDisplacements(*file);
  if (!command.modes.empty()) return DisplacementsOfModes(command.modes, simulator);
  if (!command.shape.empty()) return workbench::Shape(workbench::ParseShape(command.shape), simulator);
  return {};
}

/// @throws std::runtime_error  a displacement is not finite, as those of modes may be
void RequireFinite(const workbench::Displacements& displacements) {
  for (std::size_t i = 0; i < displacements.x.size(); ++i) {
    if (std::isfinite(displacements.x[i]) && std::isfinite(displacements.y[i])) continue;
    throw std::runtime_error(fmt::format(
        "expected finite displacements, found ({:g}, {:g}) pixels for sub-aperture {} (counted from 0); is M2S finite?",
        displacements.x[i], displacements.y[i], i));
  }
}

/// The longest displacement.
double Longest(const workbench::Displacements& displacements) {
  double longest = 0.0;
  for (std::size_t i = 0; i < displacements.x.size(); ++i) {
    longest = std::max(longest, std::hypot(displacements.x[i], displacements.y[i]));
  }
  return longest;
}

std::string Picture(const workbench::Camera& camera, const workbench::Exposure& exposure,
                    const workbench::Displacements& displacements) {
  const workbench::Frame frame = workbench::FrameOf(camera, exposure);
  const workbench::Overlay overlay = {camera.Rois(), camera.RoisUsed(), displacements};
  return workbench::DrawFrame(frame, workbench::StretchOfDrawn(frame), overlay,
                              "Frame, row 0 at the bottom; true displacements, " + workbench::ArrowLegend(overlay));
}

void RenderFrame(FrameArguments& command) {
  const std::string output =
      command.output.empty() ? (std::filesystem::path(command.folder) / "frame.fits").string() : command.output;
  workbench::StagedFiles files({output, command.truth, command.png});
  workbench::UseCalibration(command.folder);
  files.RefuseToReplace(workbench::CalibrationFiles());
  std::optional<workbench::InputFile> given;
  if (!command.displacements.empty()) files.RefuseToReplace(given.emplace(command.displacements));

  command.exposure.detector = DetectorFor(command.detector, files);

  auto camera = workbench::MakeSimulator<workbench::Camera>();
  const workbench::Displacements displacements = DisplacementsFor(command, given, camera);
  RequireFinite(displacements);
  camera.Use(command.exposure);
  camera.Draw(displacements);
  files.Give(output, workbench::FrameFile(camera, command.exposure));
  if (!command.truth.empty()) {
    files.Give(command.truth, workbench::DisplacementFile(displacements, "frame", command.exposure));
  }
  if (!command.png.empty()) files.Give(command.png, Picture(camera, command.exposure, displacements));
  files.Commit();

  Report report;
  const double longest = Longest(displacements);
  report.Add("longest_displacement", longest, "longest displacement", fmt::format("{:.4g} pixels", longest));
  AddExposure(report, command.exposure);
  report.AddFiles(files);
  report.Print(command.json);
}

}  // namespace

void AddFrame(CommandLine& line) {
  const auto command = std::make_shared<FrameArguments>();
  line.Add({.name = "frame",
            .summary = "Render one frame",
            .details = fmt::format(R"(
Draws a spot per sub-aperture. A file, modal coefficients or a named shape displace the spots from their references; if
none of these is given, each spot is on its reference. The file is FITS, with a table "slopes" of columns x and y, or
text, with a line "dx,dy" for each of the 1089 sub-apertures, in pixels.

Shapes are {}.)",
                                   fmt::join(workbench::ShapeNames(), ", ")),
            .examples = {"quen-shs frame sensor --shape defocus:2 --png defocus.png",
                         "quen-shs frame sensor --modes 0=1.5,2=-0.5 --noise 0 --output modal.fits --truth truth.fits"},
            .arguments = Joined(
                {{CalibrationFolder(command->folder),
                  File("--displacements", "File with the displacements of all spots", "none", command->displacements),
                  Checked(
                      "--modes", "Coefficients of modes; a mode is a column of M2S, counted from 0", "MODE=RADIANS,...",
                      [](const std::string& text) { workbench::ParseModes(text); }, command->modes),
                  Checked(
                      "--shape", "Shape, and its longest displacement", "NAME:PIXELS",
                      [](const std::string& text) { workbench::ParseShape(text); }, command->shape)},
                 ExposureArguments(command->exposure.noise, command->exposure.seed, command->detector),
                 {File("--output", "FITS file for the frame", "DIR/frame.fits", command->output),
                  File("--truth", "FITS file for the displacements, for 'measure --truth'", "none", command->truth),
                  File("--png", "PNG file for a picture", "none", command->png), JsonFlag(command->json)}}),
            .alternatives = WithExposure({{"--displacements", "--modes", "--shape"}}),
            .action = [command] { RenderFrame(*command); }});
}

}  // namespace quen::tool
