#include "workbench/campaign/options.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <type_traits>

#include "workbench/engines/scoring.hpp"
#include "workbench/sensor/displacements.hpp"

namespace quen::workbench {
namespace {

[[noreturn]] void RefuseValue(const std::string& expected, const OptionValue& found) {
  throw std::invalid_argument("expected " + expected + ", found " + InWords(found));
}

std::string NumbersWithin(const common::Limits& limits, bool is_whole) {
  return fmt::format("a {} from {} to {}", is_whole ? "whole number" : "number", InWords(limits.lowest),
                     InWords(limits.highest));
}

double NumberWithin(const OptionValue& value, const common::Limits& limits, bool is_whole) {
  const double* const number = std::get_if<double>(&value);
  if (number == nullptr || !limits.Contain(*number) || (is_whole && *number != std::trunc(*number))) {
    RefuseValue(NumbersWithin(limits, is_whole), value);
  }
  return *number;
}

void CheckName(const std::string& text) {
  if (text.empty() || text.find('\0') != std::string::npos) throw std::invalid_argument("expected the name of a file");
}

void CheckEngine(const std::string& text) { MakeEngine(text); }

/// How frames are drawn and measured.
std::vector<OptionRule> OptionsOfExposure() {
  using Limits = quen::detector::DetectorLimits;
  return {{"noise", &RunSettings::noise, Exposure::kNoise},
          {.name = "detector", .member = &RunSettings::detector, .is_file = true, .check = CheckName},
          {"photons", &RunSettings::photons, DetectorChanges::kPhotons},
          {"background", &RunSettings::background, Limits::kElectrons},
          {"em-gain", &RunSettings::em_gain, Limits::kEmGain},
          {"read-noise", &RunSettings::read_noise, Limits::kReadNoise},
          {"pedestal", &RunSettings::pedestal, Limits::kOffset},
          {"use-maps", &RunSettings::use_maps},
          {.name = "engine", .member = &RunSettings::engine, .check = CheckEngine}};
}

std::vector<OptionRule> WithExposureOptions(std::vector<OptionRule> options) {
  std::ranges::move(OptionsOfExposure(), std::back_inserter(options));
  return options;
}

/// There is no noise of the simulator's own beside a detector.
std::vector<std::pair<std::string, std::string>> WithExposureAlternatives(
    std::vector<std::pair<std::string, std::string>> alternatives) {
  for (const char* const name : {"detector", "photons", "background", "em-gain", "read-noise", "pedestal"}) {
    alternatives.emplace_back("noise", name);
  }
  return alternatives;
}

VerbRules LoopRules() {
  RunSettings defaults;
  defaults.frames = 1000;
  return {"loop",
          defaults,
          WithExposureOptions(
              {{"frames", &RunSettings::frames, LoopLimits::kFrames},
               {"gain", &RunSettings::gain, LoopLimits::kGain},
               {"leak", &RunSettings::leak, LoopLimits::kLeak},
               {"delay", &RunSettings::delay, LoopLimits::kDelay},
               {"d-over-r0", &RunSettings::d_over_r0, LoopLimits::kDOverR0},
               {.name = "disturbance", .member = &RunSettings::disturbance, .is_file = true, .check = CheckName}}),
          WithExposureAlternatives({{"d-over-r0", "disturbance"}}),
          {{"use-maps", "detector"}},
          {},
          {{"residual_before", "rad", "RMS, frames before the first correction"},
           {"residual", "rad", "RMS, second half of the run"},
           {"disturbance_rms", "rad", "second half of the run"},
           {"frames_run", "", "fewer than asked for: diverged"},
           {"lost_spots", "", "in all frames"}}};
}

VerbRules ScoreRules() {
  RunSettings defaults;
  defaults.frames = static_cast<int>(quen::centroiders::ScoreOptions().frames);
  return {"score",
          defaults,
          WithExposureOptions({{"frames", &RunSettings::frames, ScoringLimits::kFrames},
                               {"range", &RunSettings::range, common::Limits{0.0, kSlopeLimit}}}),
          WithExposureAlternatives({}),
          {{"use-maps", "detector"}},
          {"engine"},
          {{"rms", "pixel", "error over both axes"},
           {"bias_x", "pixel", "mean error"},
           {"bias_y", "pixel", "mean error"},
           {"rms_x", "pixel", "error"},
           {"rms_y", "pixel", "error"},
           {"gain_x", "", "measured over true displacements"},
           {"gain_y", "", "measured over true displacements"},
           {"offset_x", "pixel", "measured for no displacement"},
           {"offset_y", "pixel", "measured for no displacement"},
           {"worst", "pixel", "error"},
           {"flux_bias", "", "share of the spot's light"},
           {"flux_rms", "", "share of the spot's light"},
           {"failed_spots", "", "share of all spots"}}};
}

const std::vector<VerbRules>& AllRules() {
  static const std::vector<VerbRules> rules = {LoopRules(), ScoreRules()};
  return rules;
}

}  // namespace

std::string InWords(const OptionValue& value) {
  if (const double* const number = std::get_if<double>(&value)) return fmt::format("{}", *number);
  if (const bool* const flag = std::get_if<bool>(&value)) return *flag ? "true" : "false";
  return std::get<std::string>(value);
}

void OptionRule::Take(const OptionValue& value, RunSettings& settings) const {
  std::visit(
      [&](auto variable) {
        using T = std::remove_reference_t<decltype(settings.*variable)>;
        if constexpr (std::is_same_v<T, bool>) {
          if (!std::holds_alternative<bool>(value)) RefuseValue("true or false", value);
          settings.*variable = std::get<bool>(value);
        } else if constexpr (std::is_same_v<T, std::string>) {
          if (!std::holds_alternative<std::string>(value)) RefuseValue("a text", value);
          check(std::get<std::string>(value));
          settings.*variable = std::get<std::string>(value);
        } else {
          settings.*variable = static_cast<T>(NumberWithin(value, *limits, std::is_same_v<T, int>));
        }
      },
      member);
}

const OptionRule* VerbRules::Find(const std::string& option) const {
  const auto rule = std::ranges::find(options, option, &OptionRule::name);
  return rule == options.end() ? nullptr : &*rule;
}

const VerbRules& RulesOf(const std::string& verb) {
  const auto rules = std::ranges::find(AllRules(), verb, &VerbRules::name);
  if (rules == AllRules().end()) {
    throw std::invalid_argument(fmt::format("expected one of {}, found {}", fmt::join(CampaignVerbs(), ", "), verb));
  }
  return *rules;
}

std::vector<std::string> CampaignVerbs() {
  std::vector<std::string> names;
  for (const VerbRules& rules : AllRules()) names.push_back(rules.name);
  return names;
}

}  // namespace quen::workbench
