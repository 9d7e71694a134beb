#include "tools/quen-shs/verbs/src/common_arguments.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "workbench/engines/engines.hpp"
#include "workbench/engines/pixel_maps.hpp"
#include "workbench/fits/staged_file.hpp"

namespace quen::tool {
namespace {

Argument DescribedDetector(std::string& file) {
  return File("--detector", "JSON file that describes a detector, as 'quen-shs detector --new' writes it", "none",
              file);
}

/// The noise, or what describes the detector.
Json AsJson(const workbench::Exposure& exposure) {
  if (!exposure.detector) return exposure.noise;
  constexpr bool kWithComments = true;
  return Json::parse(workbench::DescribedInFull(exposure.detector->config, exposure.detector->maps), nullptr, true,
                     kWithComments);
}

void AddMapsAndSeed(Report& report, const workbench::Exposure& exposure) {
  if (exposure.detector && exposure.detector->engines_know_maps) report.Add("engines_know_maps", true);
  report.Add("seed", exposure.seed);
}

}  // namespace

Argument CalibrationFolder(std::string& folder) {
  return Positional("DIR", "Folder with the calibration (DIR/data/...)", folder);
}

Argument Noise(double& noise) {
  return Number("--noise",
                fmt::format("Half-width of the pixel noise (a spot's peak is {:g})", quen::shssim::kSpotPeak),
                "pixel values", workbench::Exposure::kNoise, noise);
}

Argument Seed(std::uint32_t& seed) {
  return Number("--seed", "Seed of all that is random; equal seeds give equal results", seed);
}

Argument JsonFlag(bool& json) { return Flag("--json", "Print the result as JSON", json); }

Argument Extension(const std::string& what, std::string& variable) {
  const auto require_name = [](const std::string& text) {
    if (text.empty()) throw std::invalid_argument("expected a name or a number, found none");
  };
  Argument extension = Checked("--extension", what, "NAME|NUMBER", require_name, variable);
  extension.otherwise = "the primary image, or the first extension if that is empty";
  return extension;
}

Argument Engine(std::string& engine) {
  return {.name = "--engine",
          .what = "Centroiding engine that measures, with its options",
          .value = "ENGINE",
          .otherwise = engine,
          .words = workbench::EngineNames(),
          .take = [&engine](const std::string& text) {
            workbench::MakeEngine(text);
            engine = text;
          }};
}

Argument Engines(std::vector<std::string>& engines) {
  return {.name = "--engine",
          .what = "Centroiding engine with its options; may be given more than once",
          .value = "ENGINE",
          .otherwise = "all engines",
          .words = workbench::EngineNames(),
          .may_be_repeated = true,
          .take = [&engines](const std::string& text) {
            workbench::MakeEngine(text);
            engines.push_back(text);
          }};
}

std::vector<Argument> DetectorParameters(DetectorArguments& detector) {
  using Limits = quen::detector::DetectorLimits;
  const std::string otherwise = "what the detector has";
  return {Number("--photons", "Light of a whole spot", "photo-electrons", workbench::DetectorChanges::kPhotons,
                 otherwise, detector.photons),
          Number("--background", "Light between the spots", "electrons per pixel", Limits::kElectrons, otherwise,
                 detector.background),
          Number("--em-gain", "Electron multiplication", "", Limits::kEmGain, otherwise, detector.em_gain),
          Number("--read-noise", "Noise of reading a pixel", "electrons RMS", Limits::kReadNoise, otherwise,
                 detector.read_noise),
          Number("--pedestal", "Counts of a pixel without electrons", "counts", Limits::kOffset, otherwise,
                 detector.pedestal)};
}

Argument UseMaps(DetectorArguments& detector) {
  return Flag("--use-maps", "Let engines correct frames for the detector's maps", detector.engines_know_maps);
}

std::vector<Argument> ExposureArguments(double& noise, std::uint32_t& seed, DetectorArguments& detector) {
  return Joined({{Noise(noise), DescribedDetector(detector.file)}, DetectorParameters(detector), {Seed(seed)}});
}

std::vector<std::vector<std::string>> WithExposure(std::vector<std::vector<std::string>> alternatives) {
  DetectorArguments any;
  alternatives.push_back({"--noise", DescribedDetector(any.file).name});
  for (const Argument& argument : DetectorParameters(any)) alternatives.push_back({"--noise", argument.name});
  return alternatives;
}

void AddExposure(Report& report, const workbench::Exposure& exposure) {
  const bool has_detector = exposure.detector != nullptr;
  report.Add(has_detector ? "detector" : "noise", AsJson(exposure), has_detector ? "detector" : "noise",
             fmt::format("{} (seed {})",
                         has_detector ? workbench::InWords(*exposure.detector) : fmt::format("{:g}", exposure.noise),
                         exposure.seed));
  AddMapsAndSeed(report, exposure);
}

void AddExposureForScripts(Report& report, const workbench::Exposure& exposure) {
  report.Add(exposure.detector ? "detector" : "noise", AsJson(exposure));
  AddMapsAndSeed(report, exposure);
}

void AddPedestal(Report& report, const std::optional<workbench::Pedestal>& pedestal, const std::string& engine) {
  if (!pedestal) return;
  const auto& [counts, share] = *pedestal;
  report.Add("pedestal", {{"counts", counts}, {"share", share}});
  if (!pedestal->IsNoticeable() || workbench::TakesPedestalAway(engine)) return;
  report.AddLine(
      fmt::format("warning: pixels between the spots have {:.0f} counts, together {:.2g} times the light of the spots, "
                  "which {} takes for light: give it the option pedestal={:.0f} or subtract=border",
                  counts, share, engine, counts));
}

std::shared_ptr<const workbench::DetectorDescription> DetectorFor(const DetectorArguments& arguments,
                                                                  const workbench::StagedFiles& files) {
  if (arguments.engines_know_maps && arguments.file.empty()) {
    throw std::runtime_error("--use-maps: expected a detector with maps, found no --detector");
  }
  if (arguments.file.empty() && !arguments.AreAny()) return nullptr;
  auto detector = std::make_shared<workbench::DetectorDescription>();
  if (!arguments.file.empty()) *detector = workbench::ReadDetector(arguments.file);
  files.RefuseToReplace(detector->files);
  detector->engines_know_maps = arguments.engines_know_maps;
  if (arguments.engines_know_maps) workbench::RequireMaps(detector->config, "--use-maps", arguments.file);
  Change(detector->config, arguments);
  return detector;
}

std::vector<Argument> Joined(std::vector<std::vector<Argument>> lists) {
  std::vector<Argument> all;
  for (std::vector<Argument>& list : lists) std::ranges::move(list, std::back_inserter(all));
  return all;
}

}  // namespace quen::tool
