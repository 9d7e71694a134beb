#include "tools/quen-shs/src/cli/command_line.hpp"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <limits>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <type_traits>

#include "tools/quen-shs/src/cli/output.hpp"
#include "tools/quen-shs/src/cli/plain_text.hpp"
#include "tools/quen-shs/src/engines/engines.hpp"

namespace quen_shs {
namespace {

constexpr int kWrongUsage = 2;

/// The number that a text is from its first character to its last, in decimal digits.
template <typename T>
std::optional<T> Decimal(std::string_view text) {
  if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
  T value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

/// Checks a number, and writes it anew: CLI11 by itself would take 010 for eight and 0x10 for sixteen.
template <typename T>
CLI::Validator NumberIn(T lowest, T highest) {
  const auto check = [=](std::string& text) {
    const std::optional<T> value = Decimal<T>(text);
    if (value && *value >= lowest && *value <= highest) {
      text = fmt::format("{}", *value);
      return std::string();
    }
    const char* const kind = std::is_integral_v<T> ? "a whole number" : "a number";
    std::ostringstream message;
    message << "expected " << kind << " from " << lowest << " to " << highest << ", found " << text;
    return message.str();
  };
  return {check, "", ""};
}

/// Accepts what `check` does not throw at.
CLI::Validator Accepted(const std::function<void(const std::string&)>& check) {
  const auto reason = [check](const std::string& text) -> std::string {
    try {
      check(text);
      return {};
    } catch (const std::invalid_argument& error) {
      return error.what();
    }
  };
  return {reason, "", ""};
}

/// Not empty: an option that is left out is another matter.
CLI::Validator AName() {
  const auto check = [](const std::string& text) { return text.empty() ? "expected a name, found an empty one" : ""; };
  return {check, "", ""};
}

CLI::Validator AnEngine() {
  return Accepted([](const std::string& text) { MakeEngine(text); });
}

std::string Joined(const std::vector<std::string>& words, const std::string& between) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : between) + word;
  return text;
}

std::string Footer(const Words& words) {
  std::string text = words.details + "\n\nExample:";
  for (const std::string& example : words.examples) text += "\n  " + example;
  if (words.has_engines) text += "\n\n" + EngineHelp();
  return text;
}

}  // namespace

// --- The arguments of a verb

template <typename T>
CLI::Option* Verb::Ranged(const char* name, T& value, double lowest, double highest, const char* description) {
  return app_->add_option(name, value, description)
      ->transform(NumberIn<T>(static_cast<T>(lowest), static_cast<T>(highest)))
      ->capture_default_str();
}

Verb& Verb::Required(const char* name, std::string& value, const char* description) {
  app_->add_option(name, value, description)->required()->check(AName());
  return *this;
}

Verb& Verb::Text(const char* name, std::string& value, const char* description) {
  app_->add_option(name, value, description)->check(AName());
  return *this;
}

Verb& Verb::Checked(const char* name, std::string& value, const char* description,
                    const std::function<void(const std::string&)>& check) {
  app_->add_option(name, value, description)->check(Accepted(check));
  return *this;
}

Verb& Verb::Flag(const char* name, bool& value, const char* description) {
  app_->add_flag(name, value, description);
  return *this;
}

Verb& Verb::OneOf(const char* name, std::string& value, const std::vector<std::string>& words,
                  const char* description) {
  const auto check = [words](const std::string& text) {
    for (const std::string& word : words) {
      if (text == word) return std::string();
    }
    return "expected one of " + Joined(words, ", ") + ", found " + text;
  };
  app_->add_option(name, value, description)
      ->check(CLI::Validator(check, ""))
      ->type_name(Joined(words, "|"))
      ->capture_default_str();
  return *this;
}

Verb& Verb::Number(const char* name, double& value, double lowest, double highest, const char* description) {
  Ranged(name, value, lowest, highest, description);
  return *this;
}

Verb& Verb::Number(const char* name, std::optional<double>& value, double lowest, double highest,
                   const char* description) {
  app_->add_option(name, value, description)->transform(NumberIn<double>(lowest, highest));
  return *this;
}

Verb& Verb::Number(const char* name, int& value, int lowest, int highest, const char* description) {
  Ranged(name, value, lowest, highest, description);
  return *this;
}

Verb& Verb::OneAtMost(const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    for (const std::string& other : names) {
      if (name != other) app_->get_option(name)->excludes(app_->get_option(other));
    }
  }
  return *this;
}

Verb& Verb::Number(const char* name, std::size_t& value, int lowest, int highest, const char* description) {
  Ranged(name, value, lowest, highest, description);
  return *this;
}

Verb& Verb::Folder(std::string& value) { return Required("DIR", value, "Folder with the calibration (DIR/data/...)"); }

Verb& Verb::Noise(double& value) {
  return Number("--noise", value, 0.0, 1e6, "Half-width of the pixel noise, 0 to 1e6; a spot's peak is 4096");
}

Verb& Verb::Seed(std::uint32_t& value) {
  Ranged("--seed", value, 0, std::numeric_limits<std::uint32_t>::max(),
         "Seed of all that is random; equal seeds give equal results");
  return *this;
}

Verb& Verb::Engine(std::string& value) {
  app_->add_option("--engine", value, "Centroiding engine that measures, with its options")
      ->check(AnEngine())
      ->type_name(kEngineType)
      ->capture_default_str();
  return *this;
}

Verb& Verb::Engines(std::vector<std::string>& values) {
  app_->add_option("--engine", values, "Engine with its options; more than one may be given [all]")
      ->check(AnEngine())
      ->type_name(kEngineType);
  return *this;
}

Verb& Verb::Json(bool& value) { return Flag("--json", value, "Print the result as JSON"); }

void Verb::Do(std::function<void()> action) { app_->callback(std::move(action)); }

// --- All of it

CommandLine::CommandLine()
    : app_(std::make_unique<CLI::App>(
          "Simulates a Shack-Hartmann wavefront sensor: calibrations, frames, slopes, control loops, pictures.")) {
  app_->name("quen-shs");
  app_->set_version_flag("--version", "quen-shs " QUEN_VERSION);
  app_->require_subcommand(1);
  app_->get_formatter()->column_width(34);
  app_->failure_message([](const CLI::App*, const CLI::Error& error) {
    return Sentence(error.what()) + "\nRun with --help for more information.\n";
  });
  app_->footer(
      "Example:\n  quen-shs calibrate sensor\n  quen-shs check sensor\n  quen-shs loop sensor\n\n'quen-shs SUBCOMMAND "
      "--help' tells more.\n"
      "Exit code: 0, 1 for a failed job, 2 for wrong usage.");
}

CommandLine::~CommandLine() = default;

Verb CommandLine::Add(const Words& words) {
  CLI::App* const app = app_->add_subcommand(words.name, words.summary);
  app->footer(Footer(words));
  return Verb(*app);
}

int CommandLine::Run(int argc, char** argv) {
  try {
    app_->parse(argc, argv);
    return 0;
  } catch (const CLI::ParseError& error) {
    const bool unknown_verb = app_->get_subcommands().empty() && !app_->remaining().empty();
    std::ostringstream help;
    const int code = unknown_verb ? app_->exit(CLI::ExtrasError(app_->remaining())) : app_->exit(error, help);
    Print(help.str());
    return code == 0 ? 0 : kWrongUsage;
  }
}

}  // namespace quen_shs
