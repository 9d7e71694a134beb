#include "workbench/engines/engines.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <sstream>
#include <stdexcept>

#include "centroiders/brightest_pixels.hpp"
#include "centroiders/centre_of_gravity.hpp"
#include "centroiders/correlation.hpp"
#include "centroiders/drawn_spot.hpp"
#include "centroiders/gaussian_fit.hpp"
#include "centroiders/light_engine.hpp"
#include "centroiders/maximum_likelihood_fit.hpp"
#include "centroiders/quad_cell.hpp"
#include "centroiders/weighted_centre_of_gravity.hpp"
#include "centroiders/windowed_centre_of_gravity.hpp"
#include "common/checks/checks.hpp"
#include "workbench/fits/numbers.hpp"

namespace quen::workbench {
namespace {

using namespace quen::centroiders;  // NOLINT(google-build-using-namespace): all engines
using quen::common::Limits;

/// What stands after an engine's name. Each option is taken by the engine that knows it.
class Options {
 public:
  Options(std::string engine, std::map<std::string, std::string> values, const EngineInputs& inputs)
      : engine_(std::move(engine)), values_(std::move(values)), inputs_(inputs) {}

  [[nodiscard]] const EngineInputs& Inputs() const { return inputs_; }

  [[nodiscard]] bool Has(const std::string& name) const { return values_.contains(name); }

  [[nodiscard]] std::optional<double> Number(const std::string& name, const std::string& expected = "a number") const {
    const auto found = values_.find(name);
    if (found == values_.end()) return std::nullopt;
    const std::optional<double> value = ParseNumber(found->second);
    if (!value) Refuse(name, expected);
    return value;
  }

  [[nodiscard]] std::optional<long> WholeNumber(const std::string& name) const {
    const auto found = values_.find(name);
    if (found == values_.end()) return std::nullopt;
    const std::optional<long> value = ParseWhole(found->second);
    if (!value || *value < 0) Refuse(name, "a whole number, not below 0");
    return value;
  }

  [[nodiscard]] bool Is(const std::string& name, const std::string& word) const {
    const auto found = values_.find(name);
    return found != values_.end() && found->second == word;
  }

  /// Whether the second of two words is given; the first one if the option is not.
  [[nodiscard]] bool IsSecond(const std::string& name, const std::string& first, const std::string& second) const {
    const auto found = values_.find(name);
    if (found == values_.end() || found->second == first) return false;
    if (found->second != second) Refuse(name, first + " or " + second);
    return true;
  }

  [[noreturn]] void Refuse(const std::string& name, const std::string& expected) const {
    throw std::invalid_argument(engine_ + ": " + name + ": expected " + expected + ", found " + values_.at(name));
  }

 private:
  std::string engine_;
  std::map<std::string, std::string> values_;
  const EngineInputs& inputs_;
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

constexpr std::size_t kUsualNumber = 40;  // of the brightest pixels

std::unique_ptr<Engine> MakeBrightest(const Options& options) {
  BrightestPixelsConfig config;
  config.fraction = options.Number("fraction");
  if (const std::optional<long> number = options.WholeNumber("number"))
    config.number = static_cast<std::size_t>(*number);
  if (!config.fraction && !config.number) config.number = kUsualNumber;
  return std::make_unique<BrightestPixels>(config);
}

std::unique_ptr<Engine> MakeQuadCell(const Options& options) {
  return std::make_unique<QuadCell>(QuadCellConfig{.gain = options.Number("gain")});
}

std::unique_ptr<Engine> MakeCorrelation(const Options& options) {
  CorrelationConfig config;
  if (const std::optional<long> size = options.WholeNumber("size")) config.size = static_cast<std::size_t>(*size);
  if (const std::optional<double> fwhm = options.Number("fwhm")) {
    config.template_values = GaussianTemplate(config.size, *fwhm);
  }
  if (const std::optional<SpotTemplate>& spot = options.Inputs().spot) {
    for (const char* const name : {"size", "fwhm"}) {
      if (options.Has(name)) options.Refuse(name, "none beside a template");
    }
    config = {spot->size, spot->values};
  }
  const bool of_surface = options.IsSecond("top", "parabolas", "surface");
  return std::make_unique<Correlation>(config, of_surface ? CorrelationTop::kOfSurface : CorrelationTop::kOfParabolas);
}

/// How counts are read: as the options say, with the camera's maps.
PixelReading ReadingOf(const Options& options) {
  const PixelMaps& maps = options.Inputs().maps;
  PixelReading reading = {
      .sign = options.Inputs().sign, .dark_map = maps.dark, .flat_map = maps.flat, .bad_pixels = maps.bad};
  if (options.Has("pixels")) {
    const bool is_unsigned = options.IsSecond("pixels", "signed", "unsigned");
    reading.sign = is_unsigned ? PixelSign::kUnsigned : PixelSign::kSigned;
  }
  reading.pedestal = options.Number("pedestal").value_or(reading.pedestal);
  reading.ceiling = options.Number("ceiling");
  return reading;
}

SpotShape ShapeOf(const Options& options) {
  if (!options.Has("shape") || options.Is("shape", "given")) return SpotShape::kGiven;
  if (options.Is("shape", "round")) return SpotShape::kRound;
  if (options.Is("shape", "oval")) return SpotShape::kOval;
  options.Refuse("shape", "given, round or oval");
}

std::unique_ptr<Engine> MakeMaximumLikelihood(const Options& options) {
  MaximumLikelihoodConfig config;
  config.reading = ReadingOf(options);
  config.gain = options.Number("gain").value_or(config.gain);
  config.read_noise = options.Number("read-noise").value_or(config.read_noise);
  config.shape = ShapeOf(options);
  config.fwhm = options.Number("fwhm").value_or(config.fwhm);
  if (options.Is("background", "slope")) {
    config.background_model = SpotBackground::kSlope;
  } else if (options.Has("background") && !options.Is("background", "constant")) {
    config.background_model = SpotBackground::kGiven;
    config.background = *options.Number("background", "constant, slope or a number");
  }
  config.steps = static_cast<int>(options.WholeNumber("steps").value_or(config.steps));
  config.tolerance = options.Number("tolerance").value_or(config.tolerance);
  config.significance = options.Number("significance").value_or(config.significance);
  return std::make_unique<MaximumLikelihoodFit>(config);
}

std::unique_ptr<Engine> MakeGaussianFit(const Options& options) {
  GaussianFitConfig config;
  config.fwhm = options.Number("fwhm").value_or(config.fwhm);
  config.steps = static_cast<int>(options.WholeNumber("steps").value_or(config.steps));
  return std::make_unique<GaussianFit>(config);
}

struct Option {
  std::string name;
  std::string what;
  std::optional<Limits> limits;  ///< of a number, as the engine checks them
  std::string otherwise = {};    ///< what holds where it is not given; empty if that needs no word
};

/// An option whose default is a number of the engine's configuration.
Option WithDefault(const std::string& name, const std::string& what, const Limits& limits, double otherwise) {
  return {name, what, limits, fmt::format("{:.3g}", otherwise)};
}

struct Kind {
  const char* name;
  std::vector<Option> options;
  std::unique_ptr<Engine> (*make)(const Options&);
  bool reads = false;           ///< whether it makes light of counts by itself
  bool takes_template = false;  ///< whether it looks for a spot that it is told
  bool is_relative = false;     ///< whether what all pixels have in common makes no difference to it
};

/// Those that say what is no light.
constexpr std::array<const char*, 4> kOptionsOfPedestals = {"pedestal", "subtract", "background", "threshold"};

Option PixelsOption() { return {"pixels", "signed or unsigned", {}, "as the frame is"}; }

Option PedestalOption() {
  return WithDefault("pedestal", "counts without light", PixelReadingLimits::kPedestal, PixelReading().pedestal);
}

/// What engines take that do not.
const std::vector<Option>& OptionsOfReading() {
  static const std::vector<Option> options = {
      PixelsOption(), PedestalOption(), {"subtract", "border, for the median of the region's, or none", {}, "none"}};
  return options;
}

std::vector<Option> AllOptions(const Kind& kind) {
  std::vector<Option> all = kind.options;
  if (!kind.reads) all.insert(all.end(), OptionsOfReading().begin(), OptionsOfReading().end());
  return all;
}

/// An engine, on light if it takes more than signed counts as they are.
std::unique_ptr<Engine> MakeReading(const Kind& kind, const Options& options) {
  std::unique_ptr<Engine> engine = kind.make(options);
  const auto is_given = [&](const Option& option) { return options.Has(option.name); };
  const EngineInputs& inputs = options.Inputs();
  const bool is_plain =
      inputs.sign == PixelSign::kSigned && inputs.maps.AreEmpty() && std::ranges::none_of(OptionsOfReading(), is_given);
  if (kind.reads || is_plain) return engine;
  LightConfig config = {.reading = ReadingOf(options)};
  if (options.IsSecond("subtract", "none", "border")) config.background = BackgroundEstimate::kBorderMedian;
  return std::make_unique<LightEngine>(config, std::move(engine));
}

const std::vector<Kind>& Kinds() {
  const CentreOfGravityConfig gravity;
  const WindowedCentreOfGravityConfig windowed;
  const WeightedCentreOfGravityConfig weighted;
  const CorrelationConfig correlation;
  const GaussianFitConfig fit;
  const MaximumLikelihoodConfig likelihood;
  static const std::vector<Kind> kinds = {
      {"centre-of-gravity",
       {WithDefault("background", "pixel value that is no light", CentreOfGravityLimits::kBackground,
                    gravity.background),
        {"threshold", "above it; dimmer pixels do not count", CentreOfGravityLimits::kThreshold, "none"},
        {"thresholding", "subtract or cut", {}, "subtract"}},
       MakeCentreOfGravity},
      {"windowed",
       {{"around", "brightest or reference", {}, "brightest"},
        WithDefault("half-width", "pixels", WindowedCentreOfGravityLimits::kHalfWidth, windowed.half_width)},
       MakeWindowed},
      {"weighted",
       {WithDefault("fwhm", "of the weight, pixels", WeightedCentreOfGravityLimits::kFwhm, weighted.fwhm),
        {"gain", "factor on the displacements", WeightedCentreOfGravityLimits::kGain, "for the drawn spot"}},
       MakeWeighted},
      {"brightest",
       {WithDefault("number", "of pixels", BrightestPixelsLimits::kNumber, kUsualNumber),
        {"fraction", "of the pixels, instead", BrightestPixelsLimits::kFraction}},
       MakeBrightest,
       false,
       false,
       true},
      {"quad-cell", {{"gain", "pixels", QuadCellLimits::kGain, "for the drawn spot"}}, MakeQuadCell},
      {"correlation",
       {WithDefault("size", "of the template, odd, pixels", CorrelationLimits::kSize,
                    static_cast<double>(correlation.size)),
        {"fwhm", "of the template's Gaussian, pixels", CorrelationLimits::kFwhm, "the drawn spot's"},
        {"top", "of parabolas, or of a surface", {}, "parabolas"}},
       MakeCorrelation,
       false,
       true},
      {"gaussian-fit",
       {WithDefault("fwhm", "of the spot, pixels", GaussianFitLimits::kFwhm, fit.fwhm),
        WithDefault("steps", "of Gauss-Newton", GaussianFitLimits::kSteps, fit.steps)},
       MakeGaussianFit},
      {"maximum-likelihood",
       {WithDefault("gain", "counts per electron", MaximumLikelihoodLimits::kGain, likelihood.gain),
        WithDefault("read-noise", "electrons RMS", MaximumLikelihoodLimits::kReadNoise, likelihood.read_noise),
        {"shape", "given, round or oval: what of it is fitted", {}, "given"},
        WithDefault("fwhm", "of the spot, or where the search starts, pixels", MaximumLikelihoodLimits::kFwhm,
                    likelihood.fwhm),
        {"background", "constant or slope, which are fitted, or electrons per pixel",
         MaximumLikelihoodLimits::kBackground, "constant"},
        PixelsOption(),
        PedestalOption(),
        {"ceiling", "counts that are saturated, from this one up", PixelReadingLimits::kCeiling, "none"},
        WithDefault("steps", "at most", MaximumLikelihoodLimits::kSteps, likelihood.steps),
        WithDefault("tolerance", "of the last step, pixels", MaximumLikelihoodLimits::kTolerance, likelihood.tolerance),
        WithDefault("significance", "least light of a spot, standard errors", MaximumLikelihoodLimits::kSignificance,
                    likelihood.significance)},
       MakeMaximumLikelihood,
       true},
  };
  return kinds;
}

template <typename Range>
std::string Listed(const Range& range) {
  std::string text;
  for (const auto& item : range) text += (text.empty() ? "" : ", ") + std::string(item.name);
  return text;
}

std::string InWords(const Limits& limits) {
  using quen::common::InDigits;
  return (limits.excludes_lowest ? "above " : "") + InDigits(limits.lowest) + " to " + InDigits(limits.highest);
}

std::string Described(const std::vector<Option>& options) {
  std::string text;
  for (const Option& option : options) {
    text += fmt::format("    {:<14}{}", option.name, option.what);
    if (option.limits) text += ", " + InWords(*option.limits);
    if (!option.otherwise.empty()) text += " [" + option.otherwise + "]";
    text += "\n";
  }
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
    const std::vector<Option> options = AllOptions(kind);
    const bool is_known = std::ranges::any_of(options, [&](const Option& option) { return option.name == name; });
    if (!is_known) Refuse(kind, "one of the options " + Listed(options), name);
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

/// What a text asks for.
struct Request {
  const Kind* kind;
  std::string options;  ///< as they stand behind the name
};

Request RequestOf(const std::string& text) {
  const std::size_t colon = text.find(':');
  const std::string name = text.substr(0, colon);
  const auto kind = std::ranges::find(Kinds(), name, &Kind::name);
  if (kind == Kinds().end()) {
    throw std::invalid_argument("expected one of " + Listed(Kinds()) + ", found " + name);
  }
  return {&*kind, colon == std::string::npos ? "" : text.substr(colon + 1)};
}

}  // namespace

std::vector<std::string> EngineNames() {
  std::vector<std::string> names;
  for (const Kind& kind : Kinds()) names.emplace_back(kind.name);
  return names;
}

std::string EngineHelp() {
  std::string text = "Engines and their options, given as NAME:OPTION=VALUE,OPTION=VALUE:\n";
  for (const Kind& kind : Kinds()) text += "  " + std::string(kind.name) + "\n" + Described(kind.options);
  return text + "  all but maximum-likelihood, which has its own\n" + Described(OptionsOfReading());
}

EngineInputs InputsFor(const std::shared_ptr<const DetectorDescription>& detector) {
  EngineInputs inputs = {.sign = SignOf(detector)};
  if (detector && detector->engines_know_maps) inputs.maps = MapsOf(detector->config);
  return inputs;
}

std::unique_ptr<Engine> MakeEngine(const std::string& text, const EngineInputs& inputs) {
  const Request request = RequestOf(text);
  try {
    return MakeReading(*request.kind, Options(request.kind->name, Parse(*request.kind, request.options), inputs));
  } catch (const std::invalid_argument& error) {
    throw std::invalid_argument(InWordsOfTheUser(*request.kind, error.what()));
  }
}

bool TakesPedestalAway(const std::string& text) {
  const Request request = RequestOf(text);
  const std::map<std::string, std::string> values = Parse(*request.kind, request.options);
  return request.kind->reads || request.kind->is_relative ||
         std::ranges::any_of(kOptionsOfPedestals, [&](const char* name) { return values.contains(name); });
}

bool LeavesSaturatedOut(const std::string& text) {
  const Request request = RequestOf(text);
  return Parse(*request.kind, request.options).contains("ceiling");
}

bool TakesTemplate(const std::string& text) { return RequestOf(text).kind->takes_template; }

}  // namespace quen::workbench
