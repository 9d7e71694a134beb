#include <fmt/format.h>

#include <cmath>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include "detector/maps.hpp"
#include "tools/quen-shs/cli/report.hpp"
#include "tools/quen-shs/verbs/src/common_arguments.hpp"
#include "tools/quen-shs/verbs/verbs.hpp"
#include "workbench/detector/new_detector.hpp"
#include "workbench/detector/photon_transfer.hpp"
#include "workbench/fits/staged_file.hpp"
#include "workbench/pictures/transfer_picture.hpp"

namespace quen::tool {
namespace {

struct DetectorVerbArguments {
  DetectorArguments detector;  ///< with the file that is written or measured
  bool is_new = false;
  bool force = false;
  workbench::MapParameters maps;  ///< with the seed of all that is random
  std::string png;                ///< file; none if empty
  bool json = false;
};

void WriteNew(const DetectorVerbArguments& command) {
  const std::vector<std::string> names = workbench::NewDetectorNames(command.detector.file);
  if (!command.force) workbench::RequireNew(names, "give --force to replace it");
  workbench::StagedFiles files(names);
  quen::detector::DetectorConfig config = workbench::UsualCamera();
  Change(config, command.detector);
  files.GiveAll(workbench::NewDetectorFiles(names, config, command.maps));
  files.Commit();
  Report report;
  report.AddFiles(files);
  report.Print(command.json);
}

/// @throws std::runtime_error  there is no slope
void RequireGain(const workbench::PhotonTransfer& transfer, const std::string& name) {
  if (std::isfinite(transfer.gain)) return;
  throw std::runtime_error(name +
                           ": the variance of its frames does not grow with the light, so that its gain cannot "
                           "be measured; is photon_noise false, or gain far below one count per electron?");
}

void MeasureDetector(const DetectorVerbArguments& command) {
  workbench::StagedFiles files({command.png});
  const auto detector = DetectorFor(command.detector, files);
  quen::detector::DetectorConfig config = detector->config;
  config.seed = command.maps.seed;
  const workbench::PhotonTransfer transfer = workbench::MeasurePhotonTransfer(config);
  RequireGain(transfer, command.detector.file);
  if (!command.png.empty()) {
    files.Give(command.png,
               workbench::DrawTransfer(transfer, std::filesystem::path(command.detector.file).filename().string()));
  }
  files.Commit();

  Report report;
  AddExposure(report, {.seed = command.maps.seed, .detector = detector});
  report.Add("dark_level", transfer.dark.mean, "level without light", fmt::format("{:.2f} counts", transfer.dark.mean));
  report.Add("dark_noise", transfer.dark_noise, "noise without light",
             fmt::format("{:.3f} electrons RMS (described: {:g} of reading)", transfer.dark_noise, config.read_noise));
  report.Add(
      "gain", transfer.gain, "gain",
      fmt::format("{:.4g} counts per photo-electron (described: {:g})", transfer.gain, config.gain * config.em_gain));
  report.Add("saturation", transfer.saturation, "saturates at", fmt::format("{:.0f} electrons", transfer.saturation));
  Json points = Json::array();
  for (const workbench::TransferPoint& point : transfer.points) {
    points.push_back({{"electrons", point.electrons}, {"mean", point.mean}, {"variance", point.variance}});
  }
  report.Add("photon_transfer", points);
  report.AddFiles(files);
  report.Print(command.json);
}

}  // namespace

void AddDetector(CommandLine& line) {
  using quen::detector::MapLimits;
  const auto command = std::make_shared<DetectorVerbArguments>();
  line.Add(
      {.name = "detector",
       .summary = "Write a detector's description, or measure one",
       .details = R"(
With --new, writes a description with all that can be said of a detector, and beside it maps of its pixels: their
response, and which are hot. Edit it to say what your detector is, and give it to 'frame', 'score', 'loop' and
'calibrate --measured' by --detector.

Without --new, exposes the detector that FILE describes to pairs of flat frames, from less than an electron to beyond
saturation, and prints what the photon transfer tells: its gain, its noise without light, and where it saturates.)",
       .examples = {"quen-shs detector camera.json --new", "quen-shs detector camera.json --png transfer.png"},
       .arguments = Joined(
           {{Positional("FILE", "JSON file that describes the detector", command->detector.file),
             Flag("--new", "Write FILE and its maps", command->is_new)},
            OnlyWith("--new", {Flag("--force", "Replace files that are there already", command->force),
                               Number("--non-uniformity", "How much the pixels' responses differ",
                                      "RMS over their mean", MapLimits::kFlatRms, command->maps.non_uniformity),
                               Number("--hot-pixels", "Hot pixels", "in a million", MapLimits::kHotPixels,
                                      command->maps.hot_pixels),
                               Number("--hot-level", "Mean level of the hot pixels", "electrons per frame",
                                      MapLimits::kHotLevel, command->maps.hot_level)}),
            DetectorParameters(command->detector),
            {Seed(command->maps.seed), File("--png", "PNG file for the photon-transfer curve", "none", command->png),
             JsonFlag(command->json)}}),
       .alternatives = {{"--new", "--png"}},
       .action = [command] { command->is_new ? WriteNew(*command) : MeasureDetector(*command); }});
}

}  // namespace quen::tool
