#include "workbench/campaign/runner.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <stdexcept>

#include "workbench/campaign/src/check_sum.hpp"
#include "workbench/campaign/src/document.hpp"
#include "workbench/engines/scoring.hpp"
#include "workbench/loop/series_file.hpp"
#include "workbench/sensor/basis.hpp"
#include "workbench/sensor/calibration_lookup.hpp"

namespace quen::workbench {
namespace {

std::uint64_t SumOf(const InputFile& file, std::uint64_t sum = kFirstCheckSum) {
  constexpr std::size_t kPiece = 1U << 20U;
  for (std::uint64_t at = 0; at < file.Size(); at += kPiece) {
    sum = CheckSum(file.Piece(at, std::min<std::uint64_t>(kPiece, file.Size() - at)), sum);
  }
  return sum;
}

template <typename Files>
std::uint64_t SumOfAll(const Files& files) {
  std::uint64_t sum = kFirstCheckSum;
  for (const InputFile& file : files) sum = SumOf(file, sum);
  return sum;
}

std::string InDigits(std::uint64_t sum) { return fmt::format("{:016x}", sum); }

std::vector<OptionValue> ValuesOf(const Axis& axis) {
  std::vector<OptionValue> values;
  for (std::uint64_t k = 0; k < axis.Size(); ++k) values.push_back(axis.At(k));
  return values;
}

/// Calls `look` with the rule and the values of each option that names files.
template <typename Look>
void ForFiles(const Campaign& campaign, const Look& look) {
  for (const OptionRule& rule : campaign.Rules().options) {
    if (!rule.is_file) continue;
    for (const auto& [name, value] : campaign.options) {
      if (name == rule.name) look(rule, {value});
    }
    for (const Axis& axis : campaign.axes) {
      if (axis.Name() == rule.name) look(rule, ValuesOf(axis));
    }
  }
}

/// The largest number of frames that a run has.
int MostFrames(const Campaign& campaign) {
  int most = campaign.SettingsAt(0).frames;
  for (const Axis& axis : campaign.axes) {
    if (axis.Name() != "frames") continue;
    for (std::uint64_t k = 0; k < axis.Size(); ++k)
      most = std::max(most, static_cast<int>(std::get<double>(axis.At(k))));
  }
  return most;
}

bool MayUseMaps(const Campaign& campaign) {
  const auto is_set = [](const OptionValue& value) { return std::get<bool>(value); };
  const auto is_maps = [](const auto& name) { return name == "use-maps"; };
  return std::ranges::any_of(campaign.options, [&](const auto& o) { return is_maps(o.first) && is_set(o.second); }) ||
         std::ranges::any_of(campaign.axes, [&](const Axis& axis) {
           return is_maps(axis.Name()) && std::ranges::any_of(ValuesOf(axis), is_set);
         });
}

}  // namespace

CampaignInputs::CampaignInputs(Campaign campaign) : campaign_(std::move(campaign)) {
  UseCalibration(campaign_.Located(campaign_.calibration));
  RequireSoundCalibration();
  variances_ = BasisOfCalibration(CalibrationFiles().front()).variances;
  ForFiles(campaign_, [&](const OptionRule& rule, const std::vector<OptionValue>& values) { ReadFiles(rule, values); });
  Document identity = Document::parse(Written(campaign_));
  identity["calibration"] = InDigits(SumOfAll(CalibrationFiles()));
  identity["version"] = QUEN_VERSION;
  ForFiles(campaign_, [&](const OptionRule& rule, const std::vector<OptionValue>& values) {
    Document contents = Document::array();
    for (const OptionValue& value : values) contents.push_back(InDigits(sums_.at(std::get<std::string>(value))));
    identity["contents of " + rule.name] = contents;
  });
  identity_ = identity.dump(2);
}

void CampaignInputs::ReadFiles(const OptionRule& rule, const std::vector<OptionValue>& values) {
  for (const OptionValue& value : values) {
    const auto& name = std::get<std::string>(value);
    rule.name == "detector" ? ReadDetectorFile(name) : ReadDisturbanceFile(name);
  }
}

void CampaignInputs::ReadDetectorFile(const std::string& name) {
  DetectorDescription& detector = detectors_[name] = ReadDetector(campaign_.Located(name));
  sums_[name] = SumOfAll(detector.files);
  if (MayUseMaps(campaign_)) RequireMaps(detector.config, "use-maps", campaign_.Located(name));
  detector.files.clear();  // they need no longer be open
}

void CampaignInputs::ReadDisturbanceFile(const std::string& name) {
  const InputFile file(campaign_.Located(name));
  Series& series = disturbances_[name] = ReadSeries(file);
  RequireModerate(series, file.Name());
  sums_[name] = SumOf(file);
  const int frames = MostFrames(campaign_);
  if (series.rows() < frames) {
    throw std::runtime_error(
        fmt::format("{}: expected a disturbance of {} frames at least, found {}", file.Name(), frames, series.rows()));
  }
}

std::shared_ptr<const DetectorDescription> CampaignInputs::DetectorFor(const RunSettings& settings) const {
  if (settings.detector.empty() && !settings.AreAny()) return nullptr;
  auto detector = std::make_shared<DetectorDescription>();
  if (!settings.detector.empty()) detector->config = detectors_.at(settings.detector).config;
  detector->engines_know_maps = settings.use_maps;
  Change(detector->config, settings);
  return detector;
}

Series CampaignInputs::DisturbanceFor(const RunSettings& settings, std::uint32_t seed) const {
  if (settings.disturbance.empty()) return TurbulentSeries(settings.frames, variances_, settings.d_over_r0, seed);
  return disturbances_.at(settings.disturbance).topRows(settings.frames);
}

Runner::Runner(const CampaignInputs& inputs) : inputs_(inputs), camera_(MakeSimulator<Camera>()) {
  RequireFlags(camera_, inputs.Of().Located(inputs.Of().calibration));
}

RunResult Runner::Run(std::uint64_t run, const std::function<void()>& after_frame) {
  const Campaign& campaign = inputs_.Of();
  const std::uint64_t point = run / campaign.repeats;
  if (point != point_) {
    settings_ = campaign.SettingsAt(point);
    detector_ = inputs_.DetectorFor(settings_);
    point_ = point;
  }
  try {
    return campaign.verb == "loop" ? RunTheLoop(campaign.SeedOf(run), after_frame)
                                   : RunTheScore(campaign.SeedOf(run), after_frame);
  } catch (const std::invalid_argument& error) {  // of options that do not go together: of the run, not of the machine
    const std::size_t results = campaign.Rules().results.size();
    return {std::vector<double>(results, std::numeric_limits<double>::quiet_NaN()), error.what()};
  }
}

RunResult Runner::RunTheLoop(std::uint32_t seed, const std::function<void()>& after_frame) {
  const LoopOptions options = {.gain = settings_.gain,
                               .leak = settings_.leak,
                               .delay = settings_.delay,
                               .exposure = {.noise = settings_.noise, .seed = seed, .detector = detector_},
                               .engine = settings_.engine};
  const LoopRun run = RunLoop(camera_, inputs_.DisturbanceFor(settings_, seed), options, after_frame);
  const LoopSummary summary = SummaryOf(run, settings_.delay);
  return {{summary.before, summary.after, summary.disturbance, static_cast<double>(run.records.size()),
           static_cast<double>(run.lost_spots)},
          FailureOf(run, summary)};
}

RunResult Runner::RunTheScore(std::uint32_t seed, const std::function<void()>& after_frame) {
  const ScoreConditions conditions = {.options = {.noise = settings_.noise,
                                                  .range = settings_.range,
                                                  .frames = static_cast<std::size_t>(settings_.frames),
                                                  .seed = seed,
                                                  .after_frame = after_frame},
                                      .detector = detector_};
  const NamedScore named = ScoreByName(camera_, {settings_.engine}, conditions).front();
  const auto& [x, y, worst, flux_bias, flux_rms, failed, microseconds] = named.score;
  return {{named.Rms(), x.bias, y.bias, x.rms, y.rms, x.gain, y.gain, x.offset, y.offset, worst, flux_bias, flux_rms,
           failed},
          ""};
}

}  // namespace quen::workbench
