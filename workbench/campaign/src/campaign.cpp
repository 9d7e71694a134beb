#include "workbench/campaign/campaign.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <limits>
#include <set>
#include <stdexcept>
#include <string_view>

#include "workbench/campaign/seeds.hpp"
#include "workbench/campaign/src/document.hpp"
#include "workbench/campaign/src/shell_word.hpp"
#include "workbench/fits/plain_text.hpp"

namespace quen::workbench {
namespace {

constexpr std::array<const char*, 5> kOwnMembers = {"verb", "calibration", "repeats", "seed", "axes"};
constexpr std::size_t kLongestValue = 300;  // bytes of a text: what a column of a table holds

/// What is wrong, and where: "axes.gain".
class CampaignError : public std::invalid_argument {
 public:
  CampaignError(const std::string& where, const std::string& what)
      : std::invalid_argument(Plain(where + ": " + what)) {}
};

/// As a sentence shows it.
std::string Shown(const Document& value) {
  if (value.is_structured()) return value.is_array() ? "a list" : "a table";
  if (value.is_string()) return value.get<std::string>();
  if (value.is_null()) return "null";
  if (value.is_number_float()) return InWords(value.get<double>());
  return value.dump(-1, ' ', false, Document::error_handler_t::replace);
}

[[noreturn]] void Refuse(const std::string& where, const std::string& expected, const Document& found) {
  throw CampaignError(where, "expected " + expected + ", found " + Shown(found));
}

OptionValue ValueOf(const std::string& where, const Document& value) {
  if (value.is_boolean()) return value.get<bool>();
  if (value.is_number()) return value.get<double>();
  if (!value.is_string()) Refuse(where, "a number, a text, or true or false", value);
  const auto text = value.get<std::string>();
  if (text.size() > kLongestValue) {
    throw CampaignError(where,
                        fmt::format("expected a text of {} bytes at most, found {}", kLongestValue, text.size()));
  }
  return text;
}

/// That the option takes this value.
void CheckValue(const std::string& where, const OptionRule& rule, const OptionValue& value) {
  RunSettings trial;
  try {
    rule.Take(value, trial);
  } catch (const std::invalid_argument& error) {
    throw CampaignError(where, error.what());
  }
}

double NumberOf(const std::string& where, const Document& value) {
  if (!value.is_number()) Refuse(where, "a number", value);
  return value.get<double>();
}

std::uint64_t WholeOf(const std::string& where, const Document& value, double lowest, double highest) {
  const double number = value.is_number() ? value.get<double>() : std::numeric_limits<double>::quiet_NaN();
  if (!(number >= lowest && number <= highest) || number != std::trunc(number)) {
    Refuse(where, fmt::format("a whole number from {:.0f} to {:.0f}", lowest, highest), value);
  }
  return static_cast<std::uint64_t>(number);
}

std::string TextOf(const std::string& where, const Document& value, const char* what) {
  std::string text = value.is_string() ? value.get<std::string>() : "";
  if (text.empty() || text.find('\0') != std::string::npos) Refuse(where, what, value);
  return text;
}

Axis ListedAxis(const std::string& where, const OptionRule& rule, const Document& list) {
  if (list.empty()) throw CampaignError(where, "expected a value or more, found none");
  std::vector<OptionValue> values;
  std::set<OptionValue> known;
  for (std::size_t k = 0; k < list.size(); ++k) {
    const std::string place = fmt::format("{}[{}]", where, k);
    const OptionValue value = values.emplace_back(ValueOf(place, list[k]));
    CheckValue(place, rule, value);
    if (!known.insert(value).second)
      throw CampaignError(place, "expected each value once, found " + InWords(value) + " twice");
  }
  return Axis::Listed(rule.name, std::move(values));
}

Axis SteppedAxis(const std::string& where, const OptionRule& rule, const Document& range) {
  std::array<double, 3> numbers{};
  const std::array<const char*, 3> names = {"from", "to", "step"};
  for (const auto& [name, value] : range.items()) {
    if (std::ranges::find(names, std::string_view(name)) == names.end()) {
      throw CampaignError(where, "expected from, to and step, found " + name);
    }
  }
  for (std::size_t k = 0; k < names.size(); ++k) {
    if (!range.contains(names[k])) throw CampaignError(where, fmt::format("expected {}, found none", names[k]));
    numbers[k] = NumberOf(where + "." + names[k], range[names[k]]);
  }
  const auto& [from, to, step] = numbers;
  CheckValue(where + ".from", rule, from);
  CheckValue(where + ".to", rule, to);
  if (!(step > 0.0) || std::isinf(step)) {
    throw CampaignError(where + ".step", fmt::format("expected a finite number above 0, found {}", step));
  }
  if (!(from <= to)) throw CampaignError(where, fmt::format("expected from <= to, found {} and {}", from, to));
  if (!((to - from) / step < kMostRuns)) {
    throw CampaignError(where,
                        fmt::format("expected {:.0f} values at most, found {:g}", kMostRuns, (to - from) / step));
  }
  Axis axis = Axis::Stepped(rule.name, from, to, step);
  const std::uint64_t last = axis.Size() - 1;
  if (last > 0) CheckValue(where + ".step", rule, axis.At(1));
  if (last > 0 && (axis.At(1) == axis.At(0) || axis.At(last) == axis.At(last - 1))) {
    throw CampaignError(where + ".step", fmt::format("expected a step that changes the value, found {}", step));
  }
  return axis;
}

Axis AxisOf(const std::string& where, const OptionRule& rule, const Document& value) {
  if (value.is_array()) return ListedAxis(where, rule, value);
  if (value.is_object()) return SteppedAxis(where, rule, value);
  Refuse(where, "a list of values, or { from, to, step }", value);
}

const OptionRule& RuleFor(const std::string& where, const VerbRules& rules, const std::string& name) {
  if (const OptionRule* const rule = rules.Find(name)) return *rule;
  std::vector<std::string> names;
  for (const OptionRule& rule : rules.options) names.push_back(rule.name);
  throw CampaignError(where,
                      fmt::format("expected an option of {} ({}), found {}", rules.name, fmt::join(names, ", "), name));
}

/// @return  whether an option is set, for all points or by an axis
bool Sets(const Campaign& campaign, const std::string& option) {
  return std::ranges::any_of(campaign.options, [&](const auto& entry) { return entry.first == option; }) ||
         std::ranges::any_of(campaign.axes, [&](const Axis& axis) { return axis.Name() == option; });
}

/// What the verb says of several options together.
void CheckTogether(const Campaign& campaign) {
  const VerbRules& rules = campaign.Rules();
  for (const auto& [one, other] : rules.alternatives) {
    if (Sets(campaign, one) && Sets(campaign, other)) {
      throw CampaignError(fmt::format("{}, {}", one, other), "expected one of the two, found both");
    }
  }
  for (const auto& [one, other] : rules.needs) {
    if (Sets(campaign, one) && !Sets(campaign, other)) {
      throw CampaignError(one, "expected " + other + " with it, found none");
    }
  }
  for (const std::string& name : rules.required) {
    if (!Sets(campaign, name)) throw CampaignError(name, "expected a value, or an axis of values, found neither");
  }
}

void CheckNumberOfRuns(const Campaign& campaign) {
  double runs = static_cast<double>(campaign.repeats);
  for (const Axis& axis : campaign.axes) runs *= static_cast<double>(axis.Size());
  if (runs > kMostRuns) {
    throw CampaignError(
        "axes", fmt::format("expected {:.0f} runs at most, the repeats of all points, found {:g}", kMostRuns, runs));
  }
}

void TakeOptions(const Document& document, Campaign& campaign) {
  for (const auto& [name, value] : document.items()) {
    if (std::ranges::find(kOwnMembers, std::string_view(name)) != kOwnMembers.end()) continue;
    const OptionRule& rule = RuleFor(name, campaign.Rules(), name);
    campaign.options.emplace_back(name, ValueOf(name, value));
    CheckValue(name, rule, campaign.options.back().second);
  }
}

void TakeAxes(const Document& axes, Campaign& campaign) {
  if (!axes.is_object()) Refuse("axes", "a table of axes", axes);
  for (const auto& [name, value] : axes.items()) {
    const std::string where = "axes." + name;
    const OptionRule& rule = RuleFor(where, campaign.Rules(), name);
    if (Sets(campaign, name)) throw CampaignError(where, "expected an option or an axis, found both");
    campaign.axes.push_back(AxisOf(where, rule, value));
  }
}

Campaign FromDocument(const Document& document) {
  Campaign campaign;
  if (!document.is_object()) Refuse("the campaign", "an object", document);
  if (!document.contains("verb"))
    throw CampaignError("verb", fmt::format("expected one of {}, found none", fmt::join(CampaignVerbs(), ", ")));
  try {
    campaign.verb = RulesOf(TextOf("verb", document["verb"], "a text")).name;
  } catch (const CampaignError&) {
    throw;
  } catch (const std::invalid_argument& error) {
    throw CampaignError("verb", error.what());
  }
  if (!document.contains("calibration")) throw CampaignError("calibration", "expected a folder, found none");
  campaign.calibration = TextOf("calibration", document["calibration"], "a folder");
  if (document.contains("repeats")) campaign.repeats = WholeOf("repeats", document["repeats"], 1.0, kMostRuns);
  if (document.contains("seed")) {
    campaign.seed =
        static_cast<std::uint32_t>(WholeOf("seed", document["seed"], 0.0, std::numeric_limits<std::uint32_t>::max()));
  }
  TakeOptions(document, campaign);
  if (document.contains("axes")) TakeAxes(document["axes"], campaign);
  CheckNumberOfRuns(campaign);
  CheckTogether(campaign);
  return campaign;
}

Document AsDocument(const OptionValue& value) {
  return std::visit([](const auto& held) { return Document(held); }, value);
}

Document AsDocument(const Axis& axis) {
  if (axis.Step() > 0.0) return {{"from", AsDocument(axis.At(0))}, {"to", axis.To()}, {"step", axis.Step()}};
  Document list = Document::array();
  for (std::uint64_t k = 0; k < axis.Size(); ++k) list.push_back(AsDocument(axis.At(k)));
  return list;
}

}  // namespace

// --- Axes

namespace {

/// The least power of ten by which both numbers become whole, and stay exact up to the last value; 0 if none does. A
/// whole number over it is the decimal number itself, rounded once.
double UnitsOf(double from, double to, double step) {
  constexpr double kMostExact = 0x1p52;
  constexpr double kMostUnits = 1e15;
  const double largest = std::max(std::abs(from), std::abs(to)) + step;
  const auto is_whole = [](double number, double units) { return std::round(number * units) / units == number; };
  double units = 1.0;
  while (units <= kMostUnits && largest * units < kMostExact) {
    if (is_whole(from, units) && is_whole(step, units)) return units;
    units *= 10.0;
  }
  return 0.0;
}

}  // namespace

Axis Axis::Listed(std::string name, std::vector<OptionValue> values) {
  Axis axis;
  axis.name_ = std::move(name);
  axis.size_ = values.size();
  axis.values_ = std::move(values);
  return axis;
}

Axis Axis::Stepped(std::string name, double from, double to, double step) {
  constexpr double kRounding = 1e-9;  // of a step
  Axis axis;
  axis.name_ = std::move(name);
  axis.to_ = to;
  axis.step_ = step;
  const double units = UnitsOf(from, to, step);
  axis.first_ = units > 0.0 ? std::round(from * units) : from;
  axis.stride_ = units > 0.0 ? std::round(step * units) : step;
  axis.units_ = units > 0.0 ? units : 1.0;
  axis.size_ = 1 + static_cast<std::uint64_t>(std::floor((to - from) / step + kRounding));
  return axis;
}

OptionValue Axis::At(std::uint64_t k) const {
  if (!values_.empty()) return values_[k];
  return std::min((first_ + static_cast<double>(k) * stride_) / units_,
                  to_);  // the last step may end on it but for its rounding
}

// --- The campaign

std::uint64_t Campaign::Points() const {
  std::uint64_t points = 1;
  for (const Axis& axis : axes) points *= axis.Size();
  return points;
}

std::vector<OptionValue> Campaign::ValuesAt(std::uint64_t point) const {
  std::vector<OptionValue> values(axes.size());
  for (std::size_t k = axes.size(); k-- > 0;) {
    values[k] = axes[k].At(point % axes[k].Size());
    point /= axes[k].Size();
  }
  return values;
}

RunSettings Campaign::SettingsAt(std::uint64_t point) const {
  const VerbRules& rules = Rules();
  RunSettings settings = rules.defaults;
  for (const auto& [name, value] : options) rules.Find(name)->Take(value, settings);
  const std::vector<OptionValue> values = ValuesAt(point);
  for (std::size_t k = 0; k < axes.size(); ++k) rules.Find(axes[k].Name())->Take(values[k], settings);
  return settings;
}

std::uint32_t Campaign::SeedOf(std::uint64_t run) const { return SeedOfRun(seed, run); }

std::string Campaign::Located(const std::string& name) const { return (std::filesystem::path(folder) / name).string(); }

std::string Campaign::CommandOf(std::uint64_t run) const {
  std::string command = "quen-shs " + verb + " " + ShellWord(Located(calibration));
  const auto add = [&](const std::string& name, const OptionValue& value) {
    if (const bool* const flag = std::get_if<bool>(&value)) {
      if (*flag) command += " --" + name;
      return;
    }
    const std::string text = InWords(value);
    command += " --" + name + " " + ShellWord(Rules().Find(name)->is_file ? Located(text) : text);
  };
  for (const auto& [name, value] : options) add(name, value);
  const std::vector<OptionValue> values = ValuesAt(run / repeats);
  for (std::size_t k = 0; k < axes.size(); ++k) add(axes[k].Name(), values[k]);
  return command + fmt::format(" --seed {}", SeedOf(run));
}

Campaign ParseCampaign(const std::string& name, const std::string& text, const std::string& folder) {
  const Document document = ParseDocument(name, text);
  try {
    Campaign campaign = FromDocument(document);
    campaign.folder = folder;
    return campaign;
  } catch (const CampaignError& error) {
    throw std::runtime_error(name + ": " + error.what());
  }
}

bool IsStream(const InputFile& file) {
  return !file.IsRegular() || file.Name().starts_with("/dev/") || file.Name().starts_with("/proc/");
}

Campaign ReadCampaign(const InputFile& file) {
  const std::filesystem::path folder = IsStream(file) ? "" : std::filesystem::path(file.Name()).parent_path();
  return ParseCampaign(file.Name(), file.Text(),
                       (std::filesystem::current_path() / folder).lexically_normal().string());
}

std::string Written(const Campaign& campaign) {
  Document document = {{"verb", campaign.verb},
                       {"calibration", campaign.calibration},
                       {"repeats", campaign.repeats},
                       {"seed", campaign.seed}};
  for (const auto& [name, value] : campaign.options) document[name] = AsDocument(value);
  Document axes = Document::object();
  for (const Axis& axis : campaign.axes) axes[axis.Name()] = AsDocument(axis);
  document["axes"] = std::move(axes);
  return document.dump(2, ' ', false, Document::error_handler_t::replace);
}

}  // namespace quen::workbench
