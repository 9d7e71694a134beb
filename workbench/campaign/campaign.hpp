#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "workbench/campaign/options.hpp"
#include "workbench/fits/input_file.hpp"

/// @file
/// A campaign: the same verb for each combination of some options, several times over. As a file it is TOML,
///
///     verb = "loop"                 # or "score"
///     calibration = "sensor"        # folder
///     repeats = 20                  # runs of each point, each with a seed of its own; 1 if it is left out
///     seed = 1                      # of the campaign; 1 if it is left out
///     frames = 1000                 # and any other option of the verb, without its dashes
///     [axes]                        # every combination of these
///     gain = { from = 0.1, to = 0.9, step = 0.1 }
///     delay = [1, 2]
///
/// or JSON, an object with the same members. Files and folders are looked for from the campaign's own folder on.
///
/// A step of 0.1 from 0.1 on gives 0.3, and not 0.1 + 2 · 0.1, which is 0.30000000000000004.
///
/// Points are numbered from 0: the last axis goes first. Runs are, too: all repeats of a point, then the next point.
/// Neither is ever listed: an axis of a million values takes no memory.

namespace quen::workbench {

/// Values of an option, one after the other.
class Axis {
 public:
  static Axis Listed(std::string name, std::vector<OptionValue> values);
  static Axis Stepped(std::string name, double from, double to, double step);

  [[nodiscard]] const std::string& Name() const { return name_; }
  [[nodiscard]] std::uint64_t Size() const { return size_; }
  [[nodiscard]] OptionValue At(std::uint64_t k) const;

  /// Of a stepped one; 0 of a list.
  [[nodiscard]] double Step() const { return step_; }
  [[nodiscard]] double To() const { return to_; }

  bool operator==(const Axis&) const = default;

 private:
  std::string name_;
  std::vector<OptionValue> values_;  ///< of a list
  double to_ = 0.0;
  double step_ = 0.0;
  double first_ = 0.0;  ///< in units, as the stride from one value to the next
  double stride_ = 0.0;
  double units_ = 1.0;  ///< in 1: a power of ten, of which decimal numbers are whole ones
  std::uint64_t size_ = 0;
};

inline constexpr double kMostRuns = 1e9;

struct Campaign {
  std::string verb;
  std::string calibration;  ///< folder, as it is written
  std::string folder;       ///< from which files and folders are looked for
  std::uint64_t repeats = 1;
  std::uint32_t seed = 1;
  std::vector<std::pair<std::string, OptionValue>> options;  ///< the same for all points
  std::vector<Axis> axes;

  [[nodiscard]] const VerbRules& Rules() const { return RulesOf(verb); }
  [[nodiscard]] std::uint64_t Points() const;
  [[nodiscard]] std::uint64_t Runs() const { return Points() * repeats; }

  /// Of each axis, in their order.
  [[nodiscard]] std::vector<OptionValue> ValuesAt(std::uint64_t point) const;
  [[nodiscard]] RunSettings SettingsAt(std::uint64_t point) const;
  [[nodiscard]] std::uint32_t SeedOf(std::uint64_t run) const;

  /// A file or folder that the campaign names.
  [[nodiscard]] std::string Located(const std::string& name) const;

  /// The command that does the same as one run.
  [[nodiscard]] std::string CommandOf(std::uint64_t run) const;
};

/// Whether a campaign comes from a pipe, or from a name that only this process has.
bool IsStream(const InputFile& file);

/// Reads a campaign and checks it whole, but for the files that it names.
/// @throws std::runtime_error  the file cannot be read, or something in it is wrong: where, what was expected, what was
///                             found
Campaign ReadCampaign(const InputFile& file);

/// The same for a text.
/// @param name    in messages
/// @param folder  from which files are looked for
Campaign ParseCampaign(const std::string& name, const std::string& text, const std::string& folder);

/// JSON from which ParseCampaign makes the same campaign.
std::string Written(const Campaign& campaign);

}  // namespace quen::workbench
