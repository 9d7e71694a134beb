#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "centroiders/score.hpp"
#include "common/checks/limits.hpp"
#include "workbench/detector/description.hpp"
#include "workbench/engines/engines.hpp"
#include "workbench/loop/control_loop.hpp"

/// @file
/// What a campaign may set: for each verb that it can run, the verb's own options, and what a run of it gives.

namespace quen::workbench {

/// A value as a campaign gives it.
using OptionValue = std::variant<double, bool, std::string>;

/// As a person writes it, and as an argument of a verb: the fewest digits from which the same number is read.
std::string InWords(const OptionValue& value);

/// All that can be set, with what holds where it is not.
struct RunSettings : DetectorChanges {
  int frames = 0;
  double gain = LoopOptions().gain;
  double leak = LoopOptions().leak;
  int delay = LoopOptions().delay;
  double d_over_r0 = 20.0;
  std::string disturbance = {};  ///< file; turbulence if empty
  double range = quen::centroiders::ScoreOptions().range;
  double noise = Exposure().noise;
  std::string detector = {};  ///< file; none if empty
  bool use_maps = false;
  std::string engine = kDefaultEngine;
};

/// An option of a verb, without the dashes.
struct OptionRule {
  std::string name;
  std::variant<double RunSettings::*, std::optional<double> RunSettings::*, int RunSettings::*, bool RunSettings::*,
               std::string RunSettings::*>
      member;
  std::optional<common::Limits> limits = {};           ///< of a number
  bool is_file = false;                                ///< a text that names one
  std::function<void(const std::string&)> check = {};  ///< of a text: throws std::invalid_argument with a reason

  /// @throws std::invalid_argument  the option takes no such value: what was expected, what was found
  void Take(const OptionValue& value, RunSettings& settings) const;
};

/// A number that a run gives.
struct ResultColumn {
  const char* name;
  const char* unit;  ///< empty if it has none
  const char* what;
};

/// A verb that a campaign can run.
struct VerbRules {
  std::string name;
  RunSettings defaults;
  std::vector<OptionRule> options;
  std::vector<std::pair<std::string, std::string>> alternatives;  ///< options that exclude each other
  std::vector<std::pair<std::string, std::string>> needs;         ///< the first does nothing without the second
  std::vector<std::string> required;                              ///< that a campaign must set
  std::vector<ResultColumn> results;

  /// @return  nullptr if there is none of this name
  [[nodiscard]] const OptionRule* Find(const std::string& option) const;
};

/// @throws std::invalid_argument  a campaign cannot run it
const VerbRules& RulesOf(const std::string& verb);

/// Those that it can.
std::vector<std::string> CampaignVerbs();

}  // namespace quen::workbench
