#include <fmt/format.h>

#include <cmath>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include "detector/maps.hpp"
#include "tools/quen-shs/cli/report.hpp"
#include "tools/quen-shs/verbs/src/common_arguments.hpp"
#include "tools/quen-shs/verbs/verbs.hpp"
#include "workbench/detector/map_file.hpp"
#include "workbench/detector/photon_transfer.hpp"
#include "workbench/fits/staged_file.hpp"
#include "workbench/pictures/transfer_picture.hpp"

namespace quen::tool {
namespace {

struct DetectorVerbArguments {
  DetectorArguments detector;  ///< with the file that is written or measured
  bool is_new = false;
  bool force = false;
  double non_uniformity = 0.01;
  double hot_pixels = 100.0;
  double hot_level = 1000.0;
  std::uint32_t seed = 1;
  std::string png;  ///< file; none if empty
  bool json = false;
};

/// A camera like many: some thousand electrons a spot, and 16 bits for 100 000 of them.
quen::detector::DetectorConfig UsualCamera() {
  quen::detector::DetectorConfig config;
  config.electrons_per_unit = 0.1;
  config.background = 2.0;
  config.dark = 0.1;
  config.read_noise = 3.0;
  config.full_well = 100000.0;
  config.gain = 0.5;
  config.offset = 100.0;
  return config;
}

/// DIR/camera.json → DIR/camera_WHAT.fits
std::string MapNameFor(const std::string& description, const std::string& what) {
  const std::filesystem::path path(description);
  return (path.parent_path() / (path.stem().string() + "_" + what + ".fits")).string();
}

void WriteNew(const DetectorVerbArguments& command) {
  const std::string& description = command.detector.file;
  const std::string flat = MapNameFor(description, "flat");
  const std::string states = MapNameFor(description, "bad_pixels");
  const std::string levels = MapNameFor(description, "bad_pixel_levels");
  const std::vector<std::string> names = {description, flat, states, levels};
  if (!command.force) workbench::RequireNew(names, "give --force to replace it");
  workbench::StagedFiles files(names);

  quen::detector::DetectorConfig config = UsualCamera();
  Override(command.detector, config);
  config.flat_map = quen::detector::DrawFlatMap(command.seed, command.non_uniformity);
  quen::detector::AddHotPixels(command.seed, command.hot_pixels, command.hot_level, config);
  const auto name_of = [](const std::string& path) { return std::filesystem::path(path).filename().string(); };
  files.GiveAll({workbench::DescribedInFull(config, {{"flat_map", name_of(flat)},
                                                     {"bad_pixels", name_of(states)},
                                                     {"bad_pixel_levels", name_of(levels)}}),
                 workbench::MapFile(config.flat_map, "relative response of each pixel"),
                 workbench::PixelStateFile(config.bad_pixels),
                 workbench::MapFile(config.bad_pixel_levels, "electrons per frame of hot pixels")});
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
  config.seed = command.seed;
  const workbench::PhotonTransfer transfer = workbench::MeasurePhotonTransfer(config);
  RequireGain(transfer, command.detector.file);
  if (!command.png.empty()) {
    files.Give(command.png,
               workbench::DrawTransfer(transfer, std::filesystem::path(command.detector.file).filename().string()));
  }
  files.Commit();

  Report report;
  AddExposure(report, {.seed = command.seed, .detector = detector});
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
  line.Add({.name = "detector",
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
                                           "RMS over their mean", MapLimits::kFlatRms, command->non_uniformity),
                                    Number("--hot-pixels", "Hot pixels", "in a million", MapLimits::kHotPixels,
                                           command->hot_pixels),
                                    Number("--hot-level", "Mean level of the hot pixels", "electrons per frame",
                                           MapLimits::kHotLevel, command->hot_level)}),
                 DetectorParameters(command->detector),
                 {Seed(command->seed), File("--png", "PNG file for the photon-transfer curve", "none", command->png),
                  JsonFlag(command->json)}}),
            .alternatives = {{"--new", "--png"}},
            .action = [command] { command->is_new ? WriteNew(*command) : MeasureDetector(*command); }});
}

}  // namespace quen::tool
