#include <fmt/format.h>

#include <memory>
#include <stdexcept>

#include "tools/quen-shs/src/cli/progress.hpp"
#include "tools/quen-shs/src/cli/report.hpp"
#include "tools/quen-shs/src/files/staged_file.hpp"
#include "tools/quen-shs/src/sensor/calibration.hpp"
#include "tools/quen-shs/src/sensor/calibration_lookup.hpp"
#include "tools/quen-shs/src/verbs/verbs.hpp"

namespace quen_shs {
namespace {

/// A simulator on a calibration that is on no disk.
quen::shssim::ShsSimulator SimulatorOn(const Calibration& calibration) {
  std::vector<InputFile> files;
  const std::vector<std::string> contents = CalibrationBytes(calibration);
  for (std::size_t k = 0; k < contents.size(); ++k) {
    files.push_back(InputFile::InMemory(kCalibrationFiles.at(k), contents[k]));
  }
  UseCalibration(std::move(files));
  return MakeSimulator();
}

Calibration Measured(const Calibration& calibration, const PokeOptions& options) {
  auto simulator = SimulatorOn(calibration);
  Progress progress(kPokeFrames);
  const Matrix m2s = MeasuredModesToSlopes(simulator, options, [&] { progress.Step(); });
  if (!m2s.allFinite()) {
    throw std::runtime_error(fmt::format(
        "the modes cannot be measured: {} gives slopes that are not finite; try less noise, or another engine",
        options.engine));
  }
  return WithMatrix(calibration, m2s,
                    fmt::format("measured: {}, {:g} pixels, noise {:g}, seed {}", options.engine, options.push,
                                options.noise, options.seed));
}

}  // namespace

void Calibrate(const CalibrateCommand& command) {
  RefuseToReplace(command.folder, command.force);
  StagedFiles files(CalibrationNames(command.folder));
  Calibration calibration = MakeCalibration(command.geometry, BasisByWord(command.basis));
  if (command.is_measured) calibration = Measured(calibration, command.poke);
  files.GiveAll(CalibrationBytes(calibration));
  files.Commit();
  Report report;
  report.AddFiles(files);
  report.Add("basis", calibration.basis);
  report.Add("matrix", calibration.origin);
  report.Print(command.json);
}

void AddCalibrate(CommandLine& line) {
  const auto command = std::make_shared<CalibrateCommand>();
  Geometry& geometry = command->geometry;
  PokeOptions& poke = command->poke;
  line.Add({"calibrate",
            "Write a complete synthetic calibration",
            "Writes DIR/data/M2S.fits, DIR/data/CM.fits and DIR/data/shs_rois.fits: 33 x 33 sub-apertures behind an\n"
            "annular pupil that is 29 of them across, the 607 best lit of them used, and 52 modes.\n\n"
            "The matrix holds the mean gradients of the modes over each sub-aperture. With --measured each mode is\n"
            "pushed and pulled through the simulator instead, and the slopes are those that the engine measures.",
            {"quen-shs calibrate sensor",
             "quen-shs calibrate sensor --basis karhunen-loeve --measured --engine weighted"},
            true})
      .Required("DIR", command->folder, "Folder to write to; made if missing")
      .Flag("--force", command->force, "Replace a calibration that is there already")
      .Number("--pitch", geometry.pitch, 1.0, 26.0, "Pixels from one sub-aperture to the next, 1 to 26")
      .Number("--size", geometry.size, 1, 200, "Width and height of a region, pixels, 1 to 200")
      .Number("--offset-x", geometry.offset_x, -500.0, 500.0, "Columns from the middle of the frame to the grid's")
      .Number("--offset-y", geometry.offset_y, -500.0, 500.0, "Rows from the middle of the frame to the grid's")
      .Number("--obscuration", geometry.obscuration, 0.0, 0.99, "Inner over outer diameter of the pupil, 0 to 0.99")
      .Number("--spider-angle", geometry.spider_angle, -180.0, 180.0,
              "Angle of a cross of four vanes before the pupil, degrees [no vanes]")
      .Number("--spider-width", geometry.spider_width, 0.0, 0.5, "Width of a vane over the pupil's diameter, 0 to 0.5")
      .OneOf("--basis", command->basis, {kZernikeWord, kKarhunenLoeveWord}, "Modes")
      .Flag("--measured", command->is_measured, "Measure the matrix instead of computing it")
      .Engine(poke.engine)
      .Number("--push", poke.push, 1e-3, 12.0, "Largest displacement when measuring, pixels, 0.001 to 12")
      .Noise(poke.noise)
      .Seed(poke.seed)
      .Json(command->json)
      .Do([command] { Calibrate(*command); });
}

}  // namespace quen_shs
