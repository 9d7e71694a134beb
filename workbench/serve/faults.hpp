#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "common/checks/limits.hpp"
#include "workbench/fits/input_file.hpp"

/// @file
/// What goes wrong with a sensor's frames on command. A script is a JSON list of objects:
///
///     [{"frame": 100, "kind": "late", "milliseconds": 5},  // comments are skipped
///      {"frame": 250, "kind": "lost", "subaperture": 300, "frames": 50}]
///
/// `frame` is the frame that is hit, counted from 0; where that is skipped, the next one is. Other members are the
/// kind's parameters. Some may be left out.

namespace quen::workbench {

enum class FaultKind {
  kDrop,
  kRepeat,
  kLate,
  kTwice,
  kFreeze,
  kPause,
  kTear,
  kCounter,
  kDark,
  kSaturate,
  kStuck,
  kShift,
  kCosmic,
  kBitflip,
  kLost,
  kBurst,
  kRemake,
};

struct FaultParameter {
  const char* name = "";
  const char* unit = "";  ///< may be empty
  common::Limits limits = {};
  bool is_whole = false;                 ///< a whole number
  std::optional<double> otherwise = {};  ///< where it is left out; none if it must be given
  common::Limits random = {};            ///< what random faults have
};

struct FaultRule {
  FaultKind kind = FaultKind::kDrop;
  const char* name = "";
  const char* what = "";
  std::vector<FaultParameter> parameters = {};
};

/// All kinds, in the order of FaultKind.
const std::vector<FaultRule>& FaultRules();

inline constexpr std::size_t kMostFaultParameters = 6;

struct Fault {
  std::uint64_t frame = 0;
  FaultKind kind = FaultKind::kDrop;
  std::array<double, kMostFaultParameters> values = {};  ///< of its parameters, in their order

  /// @param parameter  one of the kind's
  [[nodiscard]] double Value(std::string_view parameter) const;
  [[nodiscard]] std::uint64_t Count(std::string_view parameter) const {
    return static_cast<std::uint64_t>(Value(parameter));
  }
};

/// "late milliseconds=5".
std::string InWords(const Fault& fault);

/// A line for each kind, with its parameters, units and limits.
std::string FaultHelp();

/// Reads a script.
/// @throws std::runtime_error  the file, which of the faults, what was expected and found
std::vector<Fault> ReadFaults(const InputFile& file);

/// One fault in a share of all frames, of any kind.
struct RandomFaults {
  std::uint32_t seed = 0;
  double share = 0.0;  ///< 0 to 1
};

inline constexpr const char* kRandomFaults = "random:";

/// From a text "random:SEED:SHARE".
/// @throws std::invalid_argument  it is none
RandomFaults ParseRandomFaults(const std::string& text);

/// Tells frame after frame what hits it.
class FaultScript {
 public:
  /// @param faults  in any order
  /// @param rate    frames a second, of which a pause takes as many as fall into it; 0 if they come as they can
  FaultScript(std::vector<Fault> faults, double rate);
  FaultScript(RandomFaults random, double rate);

  /// The faults of a frame, those that go on first.
  /// @param frame  above that of the call before; those between were skipped
  std::span<const Fault> At(std::uint64_t frame);

 private:
  void AddRandom(std::uint64_t frame);
  [[nodiscard]] std::uint64_t FramesOf(const Fault& fault) const;

  std::deque<Fault> to_come_;  ///< by their frames
  std::vector<Fault> active_;
  std::vector<std::uint64_t> frames_left_;  ///< of those, this one among them
  double rate_;
  std::optional<RandomFaults> random_ = {};
  std::mt19937_64 generator_;
  std::uint64_t drawn_ = 0;  ///< frames for which random faults have been drawn
};

}  // namespace quen::workbench
