#include "workbench/detector/description.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <stdexcept>
#include <string_view>
#include <variant>

#include "shssim/spot.hpp"
#include "workbench/detector/map_file.hpp"
#include "workbench/fits/content.hpp"
#include "workbench/fits/header.hpp"

namespace quen::workbench {
namespace {

using quen::common::Fits::Handle;
using quen::detector::DetectorConfig;
using Json = nlohmann::ordered_json;

using Member = std::variant<double DetectorConfig::*, std::optional<double> DetectorConfig::*, int DetectorConfig::*,
                            bool DetectorConfig::*>;

/// A parameter: its name in a description, its keyword in a header, and what it is in both.
struct Parameter {
  const char* name;
  const char* keyword;
  const char* unit;  ///< empty if it has none
  const char* what;
  Member member;
};

constexpr std::array<Parameter, 10> kParameters = {{
    {"electrons_per_unit", "DETUNIT", "e-", "mean photo-electrons for a frame value of 1",
     &DetectorConfig::electrons_per_unit},
    {"background", "DETBACK", "e-", "mean per pixel and frame, light", &DetectorConfig::background},
    {"dark", "DETDARK", "e-", "mean per pixel and frame, no light", &DetectorConfig::dark},
    {"photon_noise", "DETPHOT", "", "Poisson statistics of electrons", &DetectorConfig::photon_noise},
    {"em_gain", "DETEMG", "", "electron multiplication, 1 is none", &DetectorConfig::em_gain},
    {"read_noise", "DETREAD", "e-", "RMS, Gaussian", &DetectorConfig::read_noise},
    {"full_well", "DETWELL", "e-", "that a pixel holds; null is no limit", &DetectorConfig::full_well},
    {"gain", "DETGAIN", "adu/e-", "counts per electron", &DetectorConfig::gain},
    {"offset", "DETOFFS", "adu", "pedestal", &DetectorConfig::offset},
    {"bits", "DETBITS", "bit", "of the converter", &DetectorConfig::bits},
}};

/// A map: its name in a description, its keyword, and how its file is read.
struct Map {
  const char* name;
  const char* keyword;
  const char* what;
  void (*read)(const InputFile& file, DetectorConfig& config);
};

constexpr std::array<Map, 5> kMaps = {{
    {"flat_map", "DETFLAT", "relative response of each pixel",
     [](const InputFile& file, DetectorConfig& config) { config.flat_map = ReadMap(file); }},
    {"dark_map", "DETDARKM", "more dark electrons of each pixel",
     [](const InputFile& file, DetectorConfig& config) { config.dark_map = ReadMap(file); }},
    {"offset_map", "DETOFFSM", "more pedestal of each pixel, counts",
     [](const InputFile& file, DetectorConfig& config) { config.offset_map = ReadMap(file); }},
    {"bad_pixels", "DETBAD", "0 good, 1 dead, 2 hot, 3 stuck",
     [](const InputFile& file, DetectorConfig& config) { config.bad_pixels = ReadPixelStates(file); }},
    {"bad_pixel_levels", "DETLEVEL", "hot: electrons per frame; stuck: counts",
     [](const InputFile& file, DetectorConfig& config) { config.bad_pixel_levels = ReadMap(file); }},
}};

std::string AllNames() {
  std::string names;
  for (const Parameter& parameter : kParameters) names += std::string(parameter.name) + ", ";
  for (const Map& map : kMaps) names += std::string(map.name) + ", ";
  return names.substr(0, names.size() - 2);
}

[[noreturn]] void Refuse(const std::string& expected, const Json& found) {
  const std::string text = found.is_structured() ? std::string("an ") + found.type_name()
                                                 : found.dump(-1, ' ', false, Json::error_handler_t::replace);
  throw std::invalid_argument("must be " + expected + ", found " + text);
}

// What a member of an object says, and what it is told to be.
void TakeValue(const Json& value, double& variable) {
  if (!value.is_number()) Refuse("a number", value);
  variable = value.get<double>();
}
void TakeValue(const Json& value, std::optional<double>& variable) {
  if (!value.is_number() && !value.is_null()) Refuse("a number, or null", value);
  variable = value.is_null() ? std::nullopt : std::optional(value.get<double>());
}
void TakeValue(const Json& value, int& variable) {
  constexpr double kMost = 1e6;
  if (!value.is_number_integer() || std::abs(value.get<double>()) > kMost) Refuse("a whole number", value);
  variable = value.get<int>();
}
void TakeValue(const Json& value, bool& variable) {
  if (!value.is_boolean()) Refuse("true or false", value);
  variable = value.get<bool>();
}

/// Line and column of a byte, counted from 1.
std::string PlaceIn(std::string_view text, std::size_t byte) {
  const std::string_view before = text.substr(0, byte == 0 ? 0 : byte - 1);
  const std::size_t line_start = before.rfind('\n') == std::string_view::npos ? 0 : before.rfind('\n') + 1;
  return fmt::format("line {}, column {}", 1 + std::ranges::count(before, '\n'), 1 + before.size() - line_start);
}

/// @param text  not long, for each member is compared with all others
Json ParseObject(const std::string& name, const std::string& text) {
  constexpr std::size_t kLongest = 65536;  // bytes
  if (text.size() > kLongest) {
    throw std::runtime_error(
        fmt::format("{}: expected a JSON object of {} bytes at most, found {}", name, kLongest, text.size()));
  }
  std::set<std::string> fields;
  const auto require_once = [&](int depth, Json::parse_event_t event, const Json& value) {
    if (depth != 1 || event != Json::parse_event_t::key || fields.insert(value.get<std::string>()).second) return true;
    throw std::runtime_error(fmt::format("{}: expected {} once, found it twice", name, value.get<std::string>()));
  };
  Json object;
  try {
    object = Json::parse(text, require_once, true, true);
  } catch (const Json::parse_error& error) {
    throw std::runtime_error(
        fmt::format("{}: expected a JSON object, found something else at {}", name, PlaceIn(text, error.byte)));
  } catch (const Json::exception&) {
    throw std::runtime_error(name + ": expected numbers of magnitude 1.8e308 at most, found a larger one");
  }
  if (!object.is_object()) {
    throw std::runtime_error(fmt::format("{}: expected a JSON object, found {}", name, object.type_name()));
  }
  return object;
}

/// Where names in a description begin: in its folder, or where the user is if it comes from a stream.
std::filesystem::path FolderOf(const InputFile& description) {
  const std::string& name = description.Name();
  const bool is_descriptor = name == "/dev/stdin" || name.starts_with("/dev/fd/") || name.starts_with("/proc/");
  return description.IsRegular() && !is_descriptor ? std::filesystem::path(name).parent_path() : "";
}

std::string MapName(const InputFile& description, const Json& value) {
  const std::string name = value.is_string() ? value.get<std::string>() : "";
  if (name.empty() || name.find('\0') != std::string::npos) Refuse("the name of a FITS file", value);
  return (FolderOf(description) / name).string();
}

void Take(const std::string& name, const Json& value, DetectorDescription& detector) {
  const auto* const parameter = std::ranges::find(kParameters, std::string_view(name), &Parameter::name);
  if (parameter != kParameters.end()) {
    std::visit([&](auto member) { TakeValue(value, detector.config.*member); }, parameter->member);
    return;
  }
  const auto* const map = std::ranges::find(kMaps, std::string_view(name), &Map::name);
  if (map == kMaps.end()) throw std::invalid_argument("is no parameter of a detector; expected one of " + AllNames());
  const InputFile& file = detector.files.emplace_back(MapName(detector.files.front(), value));
  map->read(file, detector.config);
  detector.maps.push_back({name, value.get<std::string>()});
}

/// The detector's own sentence, without its name.
std::string WithoutClass(std::string_view message) {
  constexpr std::string_view kClass = "Detector: ";
  return std::string(message.starts_with(kClass) ? message.substr(kClass.size()) : message);
}

void RequireSound(const DetectorDescription& detector) {
  try {
    const quen::detector::Detector sound(detector.config);
  } catch (const std::invalid_argument& error) {
    throw std::runtime_error(detector.files.front().Name() + ": " + WithoutClass(error.what()));
  }
}

// How a value is written in a description.
std::string Written(double value) { return Json(value).dump(); }
std::string Written(const std::optional<double>& value) { return value ? Written(*value) : "null"; }
std::string Written(int value) { return std::to_string(value); }
std::string Written(bool value) { return value ? "true" : "false"; }
std::string Written(const std::string& name) {
  try {
    return Json(name).dump();
  } catch (const Json::exception&) {
    throw std::runtime_error(name + ": expected a name in UTF-8, which is all that JSON can hold");
  }
}

std::string Remark(const Parameter& parameter) {
  return *parameter.unit == '\0' ? parameter.what : fmt::format("{}: {}", parameter.unit, parameter.what);
}

// How it is written in a header.
void WriteValue(const Handle& file, const Parameter& parameter, double value) {
  WriteKey(file, parameter.keyword, value,
           *parameter.unit == '\0' ? parameter.what : fmt::format("[{}] {}", parameter.unit, parameter.what));
}
void WriteValue(const Handle& file, const Parameter& parameter, const std::optional<double>& value) {
  if (value) WriteValue(file, parameter, *value);
}
void WriteValue(const Handle& file, const Parameter& parameter, int value) {
  WriteKey(file, parameter.keyword, static_cast<long>(value), fmt::format("[{}] {}", parameter.unit, parameter.what));
}
void WriteValue(const Handle& file, const Parameter& parameter, bool value) {
  WriteKey(file, parameter.keyword, std::string(value ? "on" : "off"), parameter.what);
}

/// Whether a card of a frame's header is of its detector or its seed.
bool TellsOfDetector(const std::string& card) {
  const auto has_keyword = [&](const auto& entry) { return HasKeyword(card, entry.keyword); };
  return HasKeyword(card, kSeedKeyword) || std::ranges::any_of(kParameters, has_keyword) ||
         std::ranges::any_of(kMaps, has_keyword);
}

}  // namespace

DetectorDescription ReadDetector(const std::string& name) {
  DetectorDescription detector;
  detector.files.emplace_back(name);
  const Json object = ParseObject(name, detector.files.front().Text());
  for (const auto& [member, value] : object.items()) {
    try {
      Take(member, value, detector);
    } catch (const std::invalid_argument& error) {
      throw std::runtime_error(fmt::format("{}: {} {}", name, member, error.what()));
    }
  }
  RequireSound(detector);
  return detector;
}

std::string DescribedInFull(const DetectorConfig& config, const std::vector<MapSource>& maps) {
  std::string text =
      "// A detector. A member that is left out has its default: photon noise, gain 1, no read noise, no limit, no "
      "map.\n{\n";
  for (const Parameter& parameter : kParameters) {
    const std::string value = std::visit([&](auto member) { return Written(config.*member); }, parameter.member);
    const bool is_last = maps.empty() && &parameter == &kParameters.back();
    text += fmt::format("  {:<52} // {}\n", fmt::format("\"{}\": {}{}", parameter.name, value, is_last ? "" : ","),
                        Remark(parameter));
  }
  for (const MapSource& map : maps) {
    const auto* const kind = std::ranges::find(kMaps, std::string_view(map.member), &Map::name);
    const bool is_last = &map == &maps.back();
    text += fmt::format("  {:<52} // {}\n",
                        fmt::format("\"{}\": {}{}", map.member, Written(map.file), is_last ? "" : ","), kind->what);
  }
  return text + "}\n";
}

bool DetectorChanges::AreAny() const { return photons || background || em_gain || read_noise || pedestal; }

void Change(DetectorConfig& config, const DetectorChanges& changes) {
  if (changes.photons) config.electrons_per_unit = *changes.photons / quen::shssim::kSpotFlux;
  config.background = changes.background.value_or(config.background);
  config.em_gain = changes.em_gain.value_or(config.em_gain);
  config.read_noise = changes.read_noise.value_or(config.read_noise);
  config.offset = changes.pedestal.value_or(config.offset);
}

std::string InWords(const DetectorDescription& detector) {
  return fmt::format("{:.4g} electrons a spot, read noise {:g}{}",
                     detector.config.electrons_per_unit * quen::shssim::kSpotFlux, detector.config.read_noise,
                     detector.engines_know_maps ? ", maps known to the engines" : "");
}

void WriteDetectorKeys(const Handle& file, const DetectorDescription& detector) {
  for (const Parameter& parameter : kParameters) {
    std::visit([&](auto member) { WriteValue(file, parameter, detector.config.*member); }, parameter.member);
  }
  for (const MapSource& source : detector.maps) {
    const auto* const map = std::ranges::find(kMaps, std::string_view(source.member), &Map::name);
    WriteKey(file, map->keyword, source.file, map->what);
  }
  if (detector.engines_know_maps)
    WriteKey(file, "ENGMAPS", std::string("known"), "engines correct frames for the maps");
}

void CopyDetectorKeys(const InputFile& file, const Handle& from, const Handle& to) {
  if (!TextKey(file, from, kParameters.front().keyword).empty()) CopyCards(file, from, to, TellsOfDetector);
}

}  // namespace quen::workbench
