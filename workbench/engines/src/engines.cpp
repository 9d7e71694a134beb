#include "workbench/engines/engines.hpp"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <sstream>
#include <stdexcept>

#include "centroiders/brightest_pixels.hpp"
#include "centroiders/centre_of_gravity.hpp"
#include "centroiders/correlation.hpp"
#include "centroiders/gaussian_fit.hpp"
#include "centroiders/quad_cell.hpp"
#include "centroiders/weighted_centre_of_gravity.hpp"
#include "centroiders/windowed_centre_of_gravity.hpp"
#include "workbench/fits/numbers.hpp"

namespace quen::workbench {
namespace {

using namespace quen::centroiders;  // NOLINT(google-build-using-namespace): all engines

/// What stands after an engine's name. Each option is taken by the engine that knows it.
class Options {
 public:
  Options(std::string engine, std::map<std::string, std::string> values)
      : engine_(std::move(engine)), values_(std::move(values)) {}

  [[nodiscard]] bool Has(const std::string& name) const { return values_.contains(name); }

  [[nodiscard]] std::optional<double> Number(const std::string& name) const {
    const auto found = values_.find(name);
    if (found == values_.end()) return std::nullopt;
    const std::optional<double> value = ParseNumber(found->second);
    if (!value) Refuse(name, "a number");
    return value;
  }

  [[nodiscard]] std::optional<long> WholeNumber(const std::string& name) const {
    const auto found = values_.find(name);
    if (found == values_.end()) return std::nullopt;
    const std::optional<long> value = ParseWhole(found->second);
    if (!value || *value < 0) Refuse(name, "a whole number, not below 0");
    return value;
  }

  /// Whether the second of two words is given; the first one if the option is not.
  [[nodiscard]] bool IsSecond(const std::string& name, const std::string& first, const std::string& second) const {
    const auto found = values_.find(name);
    if (found == values_.end() || found->second == first) return false;
    if (found->second != second) Refuse(name, first + " or " + second);
    return true;
  }

 private:
  [[noreturn]] void Refuse(const std::string& name, const std::string& expected) const {
    throw std::invalid_argument(engine_ + ": " + name + ": expected " + expected + ", found " + values_.at(name));
  }

  std::string engine_;
  std::map<std::string, std::string> values_;
};

std::unique_ptr<Engine> MakeCentreOfGravity(const Options& options) {
  CentreOfGravityConfig config;
  config.background = options.Number("background").value_or(config.background);
  config.threshold = options.Number("threshold");
  if (options.IsSecond("thresholding", "subtract", "cut")) config.thresholding = Thresholding::kCut;
  return std::make_unique<CentreOfGravity>(config);
}

std::unique_ptr<Engine> MakeWindowed(const Options& options) {
  WindowedCentreOfGravityConfig config;
  if (options.IsSecond("around", "brightest", "reference")) config.around = WindowCentre::kReference;
  config.half_width = options.Number("half-width").value_or(config.half_width);
  return std::make_unique<WindowedCentreOfGravity>(config);
}

std::unique_ptr<Engine> MakeWeighted(const Options& options) {
  WeightedCentreOfGravityConfig config;
  config.fwhm = options.Number("fwhm").value_or(config.fwhm);
  config.gain = options.Number("gain");
  return std::make_unique<WeightedCentreOfGravity>(config);
}

std::unique_ptr<Engine> MakeBrightest(const Options& options) {
  constexpr std::size_t kUsual = 40;
  BrightestPixelsConfig config;
  config.fraction = options.Number("fraction");
  if (const std::optional<long> number = options.WholeNumber("number"))
    config.number = static_cast<std::size_t>(*number);
  if (!config.fraction && !config.number) config.number = kUsual;
  return std::make_unique<BrightestPixels>(config);
}

std::unique_ptr<Engine> MakeQuadCell(const Options& options) {
  return std::make_unique<QuadCell>(QuadCellConfig{.gain = options.Number("gain")});
}

std::unique_ptr<Engine> MakeCorrelation(const Options& options) {
  CorrelationConfig config;
  if (const std::optional<long> size = options.WholeNumber("size")) config.size = static_cast<std::size_t>(*size);
  return std::make_unique<Correlation>(config);
}

std::unique_ptr<Engine> MakeGaussianFit(const Options& options) {
  GaussianFitConfig config;
  config.fwhm = options.Number("fwhm").value_or(config.fwhm);
  config.steps = static_cast<int>(options.WholeNumber("steps").value_or(config.steps));
  return std::make_unique<GaussianFit>(config);
}

struct Option {
  const char* name;
  const char* what;
};

struct Kind {
  const char* name;
  std::vector<Option> options;
  std::unique_ptr<Engine> (*make)(const Options&);
};

const std::vector<Kind>& Kinds() {
  static const std::vector<Kind> kinds = {
      {"centre-of-gravity",
       {{"background", "pixel value that is no light [0]"},
        {"threshold", "above it; dimmer pixels do not count [none]"},
        {"thresholding", "subtract or cut [subtract]"}},
       MakeCentreOfGravity},
      {"windowed", {{"around", "brightest or reference [brightest]"}, {"half-width", "pixels [6]"}}, MakeWindowed},
      {"weighted", {{"fwhm", "of the weight, pixels [4.71]"}, {"gain", "[for the drawn spot]"}}, MakeWeighted},
      {"brightest", {{"number", "of pixels [40]"}, {"fraction", "of the pixels, instead"}}, MakeBrightest},
      {"quad-cell", {{"gain", "pixels [for the drawn spot]"}}, MakeQuadCell},
      {"correlation", {{"size", "of the drawn spot's template, odd [21]"}}, MakeCorrelation},
      {"gaussian-fit", {{"fwhm", "of the spot, pixels [4.71]"}, {"steps", "of Gauss-Newton [4]"}}, MakeGaussianFit},
  };
  return kinds;
}

template <typename Range>
std::string Listed(const Range& range) {
  std::string text;
  for (const auto& item : range) text += (text.empty() ? "" : ", ") + std::string(item.name);
  return text;
}

[[noreturn]] void Refuse(const Kind& kind, const std::string& expected, const std::string& found) {
  throw std::invalid_argument(std::string(kind.name) + ": expected " + expected + ", found " + found);
}

/// NAME=VALUE,NAME=VALUE
std::map<std::string, std::string> Parse(const Kind& kind, const std::string& text) {
  std::map<std::string, std::string> values;
  std::istringstream stream(text);
  for (std::string item; std::getline(stream, item, ',');) {
    const std::size_t equals = item.find('=');
    const std::string name = item.substr(0, equals);
    const bool is_known = std::any_of(kind.options.begin(), kind.options.end(),
                                      [&](const Option& option) { return option.name == name; });
    if (!is_known) Refuse(kind, "one of the options " + Listed(kind.options), name);
    if (equals == std::string::npos) Refuse(kind, name + "=VALUE", name);
    if (!values.emplace(name, item.substr(equals + 1)).second) Refuse(kind, name + " once", "it twice");
  }
  return values;
}

/// What an engine says of its configuration, "WindowedCentreOfGravity: half_width must be …", in the words of the user:
/// "windowed: half-width must be …".
std::string InWordsOfTheUser(const Kind& kind, const std::string& message) {
  std::string text = message.substr(message.find(": "));
  const auto field_end = text.begin() + static_cast<std::ptrdiff_t>(text.find(' ', 2));
  std::replace(text.begin(), field_end, '_', '-');
  return kind.name + text;
}

}  // namespace

std::vector<std::string> EngineNames() {
  std::vector<std::string> names;
  for (const Kind& kind : Kinds()) names.emplace_back(kind.name);
  return names;
}

std::string EngineHelp() {
  std::string text = "Engines and their options, given as NAME:OPTION=VALUE,OPTION=VALUE:\n";
  for (const Kind& kind : Kinds()) {
    text += "  " + std::string(kind.name) + "\n";
    for (const Option& option : kind.options) {
      std::string name = option.name;
      name.resize(14, ' ');
      text += "    " + name + option.what + "\n";
    }
  }
  return text;
}

std::unique_ptr<Engine> MakeEngine(const std::string& text) {
  const std::size_t colon = text.find(':');
  const std::string name = text.substr(0, colon);
  for (const Kind& kind : Kinds()) {
    if (name != kind.name) continue;
    const std::string options = colon == std::string::npos ? "" : text.substr(colon + 1);
    try {
      return kind.make(Options(name, Parse(kind, options)));
    } catch (const std::invalid_argument& error) {
      throw std::invalid_argument(InWordsOfTheUser(kind, error.what()));
    }
  }
  throw std::invalid_argument("expected one of " + Listed(Kinds()) + ", found " + name);
}

}  // namespace quen::workbench
