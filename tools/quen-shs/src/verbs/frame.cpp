#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <memory>
#include <optional>

#include "common/random/random.hpp"
#include "tools/quen-shs/src/cli/report.hpp"
#include "tools/quen-shs/src/files/displacement_file.hpp"
#include "tools/quen-shs/src/files/frame_file.hpp"
#include "tools/quen-shs/src/files/staged_file.hpp"
#include "tools/quen-shs/src/pictures/frame_picture.hpp"
#include "tools/quen-shs/src/sensor/calibration_lookup.hpp"
#include "tools/quen-shs/src/sensor/matrices.hpp"
#include "tools/quen-shs/src/sensor/mode_list.hpp"
#include "tools/quen-shs/src/sensor/shapes.hpp"
#include "tools/quen-shs/src/verbs/verbs.hpp"

namespace quen_shs {
namespace {

using quen::basesim::kFrameHeight;
using quen::basesim::kFrameWidth;
using quen::shssim::ShsSimulator;

Displacements Modal(const std::string& list, const ShsSimulator& simulator) {
  Displacements displacements;
  Spread(M2sOf(simulator) * ParseModes(list), UsedIndices(simulator.RoisUsed()), displacements);
  return displacements;
}

Displacements Wanted(const FrameCommand& command, const std::optional<InputFile>& file, const ShsSimulator& simulator) {
  if (file) return ReadDisplacements(*file);
  if (!command.modes.empty()) return Modal(command.modes, simulator);
  if (!command.shape.empty()) return Shape(ParseShape(command.shape), simulator);
  return {};
}

/// The longest displacement.
double Longest(const Displacements& displacements) {
  double longest = 0.0;
  for (std::size_t i = 0; i < displacements.x.size(); ++i) {
    longest = std::max(longest, std::hypot(displacements.x[i], displacements.y[i]));
  }
  return longest;
}

}  // namespace

void RenderFrame(const FrameCommand& command) {
  const std::string output =
      command.output.empty() ? (std::filesystem::path(command.folder) / "frame.fits").string() : command.output;
  StagedFiles files({output, command.truth, command.png});
  UseCalibration(command.folder);
  files.RefuseToReplace(CalibrationFiles());
  std::optional<InputFile> given;
  if (!command.displacements.empty()) files.RefuseToReplace(given.emplace(command.displacements));

  auto simulator = MakeSimulator();
  const Displacements displacements = Wanted(command, given, simulator);
  quen::common::random::detail::MersenneTwisterEngine().seed(command.seed);
  simulator.ComputeFrame(displacements.x, displacements.y, command.noise, std::nullopt);
  const Frame frame = {kFrameWidth, kFrameHeight, simulator.Frame()};
  files.Give(output, FrameFile(frame));
  if (!command.truth.empty()) files.Give(command.truth, DisplacementFile(displacements, "frame"));
  if (!command.png.empty()) {
    const Overlay overlay = {simulator.Rois(), simulator.RoisUsed(), displacements};
    files.Give(command.png, DrawFrame(frame, SpotStretch(), overlay,
                                      "Frame, row 0 at the bottom; true displacements, " + ArrowLegend(overlay)));
  }
  files.Commit();

  Report report;
  const double longest = Longest(displacements);
  report.Add("longest_displacement", longest, "longest displacement", fmt::format("{:.4g} pixels", longest));
  report.Add("noise", command.noise, "noise", fmt::format("{:g} (seed {})", command.noise, command.seed));
  report.Add("seed", command.seed);
  report.AddFiles(files);
  report.Print(command.json);
}

void AddFrame(CommandLine& line) {
  const auto command = std::make_shared<FrameCommand>();
  std::string shapes = "Shapes:";
  for (const std::string& name : ShapeNames()) shapes += " " + name;
  line.Add({"frame",
            "Render one frame",
            "Draws a spot per sub-aperture, displaced from its reference as a file, modal coefficients or a named\n"
            "shape say; not at all if none of them is given. A file is FITS, with a table \"slopes\" of columns x and "
            "y,\n"
            "or text, with a line \"dx,dy\" for each of the 1089 sub-apertures, in pixels.\n\n" +
                shapes,
            {"quen-shs frame sensor --shape defocus:2 --png defocus.png",
             "quen-shs frame sensor --modes 0=1.5,2=-0.5 --noise 0 --output modal.fits --truth truth.fits"}})
      .Folder(command->folder)
      .Text("--displacements", command->displacements, "File with the displacements of all spots")
      .Checked("--modes", command->modes,
               "Coefficients in radians, as MODE=VALUE,...; modes are columns of M2S, from 0",
               [](const std::string& text) { ParseModes(text); })
      .Checked("--shape", command->shape, "Shape and its longest displacement, as NAME:PIXELS",
               [](const std::string& text) { ParseShape(text); })
      .OneAtMost({"--displacements", "--modes", "--shape"})
      .Noise(command->noise)
      .Seed(command->seed)
      .Text("--output", command->output, "FITS file for the frame [DIR/frame.fits]")
      .Text("--truth", command->truth, "FITS file for the displacements, for 'measure --truth' [none]")
      .Text("--png", command->png, "PNG file for a picture [none]")
      .Json(command->json)
      .Do([command] { RenderFrame(*command); });
}

}  // namespace quen_shs
