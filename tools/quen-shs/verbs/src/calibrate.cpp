#include <memory>
#include <optional>

#include "tools/quen-shs/cli/progress.hpp"
#include "tools/quen-shs/cli/report.hpp"
#include "tools/quen-shs/verbs/src/common_arguments.hpp"
#include "tools/quen-shs/verbs/verbs.hpp"
#include "workbench/engines/engines.hpp"
#include "workbench/fits/staged_file.hpp"
#include "workbench/sensor/basis.hpp"
#include "workbench/sensor/calibration.hpp"
#include "workbench/sensor/geometry.hpp"
#include "workbench/sensor/poke.hpp"

namespace quen::tool {
namespace {

struct CalibrateArguments {
  std::string folder;
  bool force = false;
  workbench::Geometry geometry;
  std::string basis = workbench::kZernikeWord;
  bool is_measured = false;
  workbench::PokeOptions poke;  ///< where the matrix is measured
  DetectorArguments detector;   ///< with which
  bool json = false;
};

void Calibrate(CalibrateArguments& command) {
  workbench::RefuseToReplace(command.folder, command.force);
  workbench::StagedFiles files(workbench::CalibrationNames(command.folder));
  workbench::Calibration calibration =
      workbench::MakeCalibration(command.geometry, workbench::BasisByWord(command.basis));
  command.poke.exposure.detector = DetectorFor(command.detector, files);
  std::optional<workbench::Pedestal> pedestal;
  if (command.is_measured) {
    workbench::Camera camera = workbench::CameraOn(calibration);
    pedestal = workbench::PedestalOfDetector(camera, command.poke.exposure);
    Progress progress(workbench::kPokeFrames);
    calibration = workbench::Measured(camera, calibration, command.poke, [&] { progress.Step(); });
  }
  files.GiveAll(workbench::CalibrationBytes(calibration));
  files.Commit();
  Report report;
  report.AddFiles(files);
  report.Add("basis", calibration.basis);
  report.Add("matrix", calibration.origin);
  AddPedestal(report, pedestal, command.poke.engine);
  report.Print(command.json);
}

}  // namespace

void AddCalibrate(CommandLine& line) {
  const auto command = std::make_shared<CalibrateArguments>();
  workbench::Geometry& geometry = command->geometry;
  workbench::PokeOptions& poke = command->poke;
  Argument spider_width = Number("--spider-width", "Width of a vane over the diameter of the pupil", "",
                                 workbench::GeometryLimits::kSpiderWidth, geometry.spider_width);
  spider_width.only_with = "--spider-angle";
  const Argument poke_amplitude = Number("--poke-amplitude", "Largest displacement of a spot", "pixels",
                                         workbench::PokeOptions::kAmplitude, poke.amplitude);
  line.Add({.name = "calibrate",
            .summary = "Write a complete synthetic calibration",
            .details = R"(
Writes DIR/data/M2S.fits, DIR/data/CM.fits and DIR/data/shs_rois.fits: 33 x 33 sub-apertures behind an annular pupil
that is 29 sub-apertures across, of which the 607 best-lit ones are used, and 52 modes.

The modes-to-slopes matrix holds the mean gradients of the modes over each sub-aperture. With --measured each mode is
pushed and pulled through the simulator instead, and the slopes are those that the engine measures.)",
            .list = workbench::EngineHelp(),
            .examples = {"quen-shs calibrate sensor",
                         "quen-shs calibrate sensor --basis karhunen-loeve --measured --engine weighted"},
            .arguments =
                Joined({{Positional("DIR", "Folder to write to; made if missing", command->folder),
                         Flag("--force", "Replace a calibration that is there already", command->force),
                         Number("--pitch", "Distance from one sub-aperture to the next", "pixels",
                                workbench::GeometryLimits::kPitch, geometry.pitch),
                         Number("--size", "Width and height of a region", "pixels", workbench::GeometryLimits::kSize,
                                geometry.size),
                         Number("--offset-x", "Columns from the middle of the frame to that of the grid", "pixels",
                                workbench::GeometryLimits::kOffset, geometry.offset_x),
                         Number("--offset-y", "Rows from the middle of the frame to that of the grid", "pixels",
                                workbench::GeometryLimits::kOffset, geometry.offset_y),
                         Number("--obscuration", "Inner over outer diameter of the pupil", "",
                                workbench::GeometryLimits::kObscuration, geometry.obscuration),
                         Number("--spider-angle", "Angle of a spider: a cross of four vanes before the pupil",
                                "degrees", workbench::GeometryLimits::kSpiderAngle, "no vanes", geometry.spider_angle),
                         spider_width,
                         OneOf("--basis", "Modes of the wavefront",
                               {workbench::kZernikeWord, workbench::kKarhunenLoeveWord}, command->basis),
                         Flag("--measured", "Measure the matrix instead of computing it", command->is_measured)},
                        OnlyWith("--measured",
                                 Joined({{Engine(poke.engine), poke_amplitude},
                                         ExposureArguments(poke.exposure.noise, poke.exposure.seed, command->detector),
                                         {UseMaps(command->detector)}})),
                        {JsonFlag(command->json)}}),
            .alternatives = WithExposure({}),
            .action = [command] { Calibrate(*command); }});
}

}  // namespace quen::tool
