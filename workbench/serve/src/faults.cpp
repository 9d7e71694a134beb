#include "workbench/serve/faults.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "workbench/fits/numbers.hpp"
#include "workbench/sensor/dimensions.hpp"

namespace quen::workbench {
namespace {

using Json = nlohmann::ordered_json;

constexpr double kLastColumn = kFrameWidth - 1;
constexpr double kLastRow = kFrameHeight - 1;
constexpr double kMostFrames = 1e9;

FaultParameter Whole(const char* name, const char* unit, common::Limits limits, common::Limits random,
                     std::optional<double> otherwise = std::nullopt) {
  return {name, unit, limits, true, otherwise, random};
}
FaultParameter Real(const char* name, const char* unit, common::Limits limits, common::Limits random) {
  return {name, unit, limits, false, std::nullopt, random};
}

FaultParameter Frames(double otherwise) { return Whole("frames", "", {1, kMostFrames}, {1, 20}, otherwise); }

const FaultRule& RuleOf(FaultKind kind) { return FaultRules().at(static_cast<std::size_t>(kind)); }

/// A parameter as its line in the help has it: "frames (1 to 1000000000; 1)".
std::string Described(const FaultParameter& parameter) {
  return fmt::format("{} ({}{}{:.10g} to {:.10g}{})", parameter.name, parameter.unit,
                     *parameter.unit == '\0' ? "" : ", ", parameter.limits.lowest, parameter.limits.highest,
                     parameter.otherwise ? fmt::format("; {:g} if left out", *parameter.otherwise) : "");
}

double ValueOf(const FaultParameter& parameter, const Json& value) {
  const double number = value.is_number() ? value.get<double>() : std::nan("");
  if (parameter.limits.Contain(number) && (!parameter.is_whole || number == std::trunc(number))) return number;
  throw std::invalid_argument(fmt::format("{}: expected a {}number from {:.10g} to {:.10g}, found {}", parameter.name,
                                          parameter.is_whole ? "whole " : "", parameter.limits.lowest,
                                          parameter.limits.highest, value.dump()));
}

FaultKind KindNamed(const Json& object) {
  std::vector<std::string> names;
  for (const FaultRule& rule : FaultRules()) names.emplace_back(rule.name);
  const Json kind = object.value("kind", Json());
  const auto found = kind.is_string() ? std::ranges::find(names, kind.get<std::string>()) : names.end();
  if (found != names.end()) return static_cast<FaultKind>(found - names.begin());
  throw std::invalid_argument(
      fmt::format("kind: expected one of {}, found {}", fmt::join(names, ", "), kind.is_null() ? "none" : kind.dump()));
}

void RequireKnown(const std::string& member, const FaultRule& rule) {
  std::vector<std::string> names = {"frame", "kind"};
  std::ranges::transform(rule.parameters, std::back_inserter(names), &FaultParameter::name);
  if (std::ranges::find(names, member) != names.end()) return;
  throw std::invalid_argument(
      fmt::format("{}: expected only {}, which {} has", member, fmt::join(names, ", "), rule.name));
}

void RequireWithinFrame(const Fault& fault) {
  if (fault.kind != FaultKind::kStuck) return;
  if (fault.Value("x") + fault.Value("width") <= kFrameWidth &&
      fault.Value("y") + fault.Value("height") <= kFrameHeight)
    return;
  throw std::invalid_argument(
      fmt::format("expected a region within {} x {} pixels, found one that goes beyond", kFrameWidth, kFrameHeight));
}

Fault FaultOf(const Json& object) {
  if (!object.is_object()) throw std::invalid_argument("expected an object {frame, kind, ...}, found " + object.dump());
  const FaultRule& rule = RuleOf(KindNamed(object));
  for (const auto& [member, value] : object.items()) RequireKnown(member, rule);
  const FaultParameter frame = Whole("frame", "", {0, 1e15}, {});
  Fault fault = {static_cast<std::uint64_t>(ValueOf(frame, object.value("frame", Json()))), rule.kind};
  for (std::size_t k = 0; k < rule.parameters.size(); ++k) {
    const FaultParameter& parameter = rule.parameters[k];
    const bool is_left_out = parameter.otherwise && !object.contains(parameter.name);
    fault.values.at(k) = is_left_out ? *parameter.otherwise : ValueOf(parameter, object.value(parameter.name, Json()));
  }
  RequireWithinFrame(fault);
  return fault;
}

Json ParseList(const InputFile& file) {
  constexpr bool kWithComments = true;
  try {
    Json list = Json::parse(file.Text(), nullptr, true, kWithComments);
    if (list.is_array()) return list;
  } catch (const Json::exception& error) {
    throw std::runtime_error(fmt::format("{}: is no JSON: {}", file.Name(), error.what()));
  }
  throw std::runtime_error(file.Name() + ": expected a list of faults, [{\"frame\": 100, \"kind\": \"drop\"}, ...]");
}

}  // namespace

const std::vector<FaultRule>& FaultRules() {
  using enum FaultKind;
  static const std::vector<FaultRule> rules = {
      {kDrop, "drop", "the frame is not published", {}},
      {kRepeat, "repeat", "the frame before is published again in its place, with its FRAME", {}},
      {kLate, "late", "it is published late", {Real("milliseconds", "ms", {0, 3.6e6}, {0.1, 5})}},
      {kTwice, "twice", "it is published two times", {}},
      {kFreeze, "freeze", "pixels stay as they were in the frame before; FRAME and cnt0 go on", {Frames(1)}},
      {kPause, "pause", "nothing is published for this time", {Real("milliseconds", "ms", {0, 3.6e6}, {1, 20})}},
      {kTear,
       "tear",
       "the first rows are new, the others of the frame before, though it is marked as whole",
       {Whole("rows", "rows", {1, kLastRow}, {1, kLastRow})}},
      {kCounter,
       "counter",
       "cnt0 goes on by so much in place of 1; 0: it stands still",
       {Whole("by", "", {0, 1e9}, {0, 10})}},
      {kDark, "dark", "no spot has light", {Frames(1)}},
      {kSaturate, "saturate", "all pixels have the most that they can", {Frames(1)}},
      {kStuck,
       "stuck",
       "pixels of a region stay as they were in the frame before",
       {Whole("x", "column", {0, kLastColumn}, {0, kFrameWidth - 100}),
        Whole("y", "row", {0, kLastRow}, {0, kFrameHeight - 100}),
        Whole("width", "columns", {1, kFrameWidth}, {1, 100}), Whole("height", "rows", {1, kFrameHeight}, {1, 100}),
        Frames(1)}},
      {kShift,
       "shift",
       "the whole frame is displaced, toward higher rows and columns; what leaves it comes in on the other side",
       {Whole("rows", "rows", {-kLastRow, kLastRow}, {-5, 5}, 0),
        Whole("columns", "columns", {-kLastColumn, kLastColumn}, {-5, 5}, 0), Frames(1)}},
      {kCosmic,
       "cosmic",
       "pixels drawn at random have so much more: units of pixel values, or electrons with a detector",
       {Whole("hits", "pixels", {1, 100000}, {1, 20}), Real("amount", "units or electrons", {0, 1e9}, {1000, 20000})}},
      {kBitflip,
       "bitflip",
       "a bit of a pixel is the other one",
       {Whole("x", "column", {0, kLastColumn}, {0, kLastColumn}), Whole("y", "row", {0, kLastRow}, {0, kLastRow}),
        Whole("bit", "0 the lowest", {0, 15}, {0, 15}), Frames(1)}},
      {kLost,
       "lost",
       "a sub-aperture has no spot",
       {Whole("subaperture", "counted from 0", {0, kNumRois - 1}, {0, kNumRois - 1}), Frames(1)}},
      {kBurst,
       "burst",
       "the noise is larger: the simulator's half-width, or a detector's read noise",
       {Real("factor", "", {0, 1e3}, {2, 10}), Frames(1)}},
      {kRemake,
       "remake",
       "the stream is made anew, another file of its name; cnt0 begins at 0, or goes on",
       {Whole("goes_on", "0 or 1", {0, 1}, {0, 1}, 0)}},
  };
  return rules;
}

double Fault::Value(std::string_view parameter) const {
  const std::vector<FaultParameter>& parameters = RuleOf(kind).parameters;
  const auto found =
      std::ranges::find(parameters, parameter, [](const FaultParameter& one) { return std::string_view(one.name); });
  return found == parameters.end() ? 0.0 : values.at(static_cast<std::size_t>(found - parameters.begin()));
}

std::string InWords(const Fault& fault) {
  const FaultRule& rule = RuleOf(fault.kind);
  std::string text = rule.name;
  for (std::size_t k = 0; k < rule.parameters.size(); ++k) {
    text += fmt::format(" {}={:.10g}", rule.parameters[k].name, fault.values.at(k));
  }
  return text;
}

std::string FaultHelp() {
  std::string text = "Faults, and their parameters:";
  for (const FaultRule& rule : FaultRules()) {
    text += fmt::format("\n  {:<10}{}", rule.name, rule.what);
    for (const FaultParameter& parameter : rule.parameters) text += fmt::format("\n{:14}{}", "", Described(parameter));
  }
  return text;
}

std::vector<Fault> ReadFaults(const InputFile& file) {
  std::vector<Fault> faults;
  for (const Json& object : ParseList(file)) {
    try {
      faults.push_back(FaultOf(object));
    } catch (const std::invalid_argument& error) {
      throw std::runtime_error(
          fmt::format("{}: fault {} (counted from 0): {}", file.Name(), faults.size(), error.what()));
    }
  }
  return faults;
}

RandomFaults ParseRandomFaults(const std::string& text) {
  constexpr double kMostSeed = 4294967295.0;
  const std::string_view rest = std::string_view(text).substr(std::string_view(kRandomFaults).size());
  const std::size_t colon = rest.find(':');
  const std::optional<double> seed = ParseNumber(rest.substr(0, colon));
  const std::optional<double> share =
      colon == std::string_view::npos ? std::nullopt : ParseNumber(rest.substr(colon + 1));
  if (!seed || !share || !common::Limits{0.0, kMostSeed}.Contain(*seed) || *seed != std::trunc(*seed) ||
      !common::Limits{0.0, 1.0}.Contain(*share)) {
    throw std::invalid_argument(
        "expected random:SEED:SHARE, a whole number from 0 to 4294967295 and a number from 0 to 1, found " + text);
  }
  return {static_cast<std::uint32_t>(*seed), *share};
}

FaultScript::FaultScript(std::vector<Fault> faults, double rate) : rate_(rate) {
  std::ranges::stable_sort(faults, {}, &Fault::frame);
  to_come_.assign(faults.begin(), faults.end());
}

FaultScript::FaultScript(RandomFaults random, double rate) : rate_(rate), random_(random), generator_(random.seed) {}

void FaultScript::AddRandom(std::uint64_t frame) {
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  if (unit(generator_) >= random_->share) return;
  std::uniform_int_distribution<std::size_t> any(0, FaultRules().size() - 1);
  const FaultRule& rule = FaultRules()[any(generator_)];
  Fault fault = {frame, rule.kind};
  for (std::size_t k = 0; k < rule.parameters.size(); ++k) {
    const auto& [lowest, highest, excludes_lowest] = rule.parameters[k].random;
    const double value = lowest + (highest - lowest) * unit(generator_);
    fault.values.at(k) = rule.parameters[k].is_whole ? std::round(value) : value;
  }
  to_come_.push_back(fault);
}

std::uint64_t FaultScript::FramesOf(const Fault& fault) const {
  constexpr double kMilliseconds = 1000.0;
  if (fault.kind == FaultKind::kPause && rate_ > 0.0) {
    return static_cast<std::uint64_t>(std::max(1.0, std::ceil(fault.Value("milliseconds") * rate_ / kMilliseconds)));
  }
  return std::max<std::uint64_t>(1, fault.Count("frames"));
}

std::span<const Fault> FaultScript::At(std::uint64_t frame) {
  for (std::size_t k = active_.size(); k-- > 0;) {
    if (--frames_left_[k] > 0) continue;
    active_.erase(active_.begin() + static_cast<std::ptrdiff_t>(k));
    frames_left_.erase(frames_left_.begin() + static_cast<std::ptrdiff_t>(k));
  }
  for (; random_ && drawn_ <= frame; ++drawn_) AddRandom(drawn_);
  for (; !to_come_.empty() && to_come_.front().frame <= frame; to_come_.pop_front()) {
    active_.push_back(to_come_.front());
    frames_left_.push_back(FramesOf(to_come_.front()));
  }
  return active_;
}

}  // namespace quen::workbench
