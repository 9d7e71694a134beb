#include "tools/quen-shs/cli/command_line.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <CLI/CLI.hpp>
#include <sstream>
#include <stdexcept>

#include "common/simd/level.hpp"
#include "tools/quen-shs/cli/output.hpp"
#include "tools/quen-shs/cli/src/paragraphs.hpp"
#include "workbench/fits/plain_text.hpp"

namespace quen::tool {
namespace {

constexpr int kWrongUsage = 2;

/// "Example:", and the command lines.
std::string Examples(const std::vector<std::string>& examples) {
  return fmt::format("Example:\n  {}", fmt::join(examples, "\n  "));
}

std::string Footer(const Verb& verb) {
  constexpr std::size_t kWidth = 110;
  std::string text;
  for (const std::string& paragraph : Paragraphs(verb.details)) text += Filled(paragraph, kWidth) + "\n\n";
  text += Examples(verb.examples);
  if (!verb.list.empty()) text += "\n\n" + verb.list;
  return text;
}

/// Gives an argument its value.
/// @throws CLI::ValidationError  it takes no such value
void Take(const Argument& argument, const std::string& text) {
  try {
    argument.take(text);
  } catch (const std::invalid_argument& error) {
    throw CLI::ValidationError(argument.name, error.what());
  }
}

void AddArgument(CLI::App& app, const Argument& argument) {
  const std::string names = argument.name + (argument.alias.empty() ? "" : "," + argument.alias);
  const std::string description = argument.Description();
  if (argument.IsFlag()) {
    app.add_flag_callback(
        names, [&argument] { Take(argument, ""); }, description);
    return;
  }
  const auto take = [&argument](const std::vector<std::string>& texts) {
    for (const std::string& text : texts) Take(argument, text);
    return true;
  };
  CLI::Option* const option = app.add_option(names, take, description);
  option->type_name(argument.value)->required(argument.is_required);
  if (argument.may_be_repeated) option->expected(1)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

CLI::App* AddVerb(CLI::App& app, const Verb& verb) {
  CLI::App* const subcommand = app.add_subcommand(verb.name, verb.summary);
  subcommand->footer(Footer(verb))->group("Verbs");
  for (const Argument& argument : verb.arguments) AddArgument(*subcommand, argument);
  for (const std::vector<std::string>& names : verb.alternatives) {
    for (const std::string& name : names) {
      for (const std::string& other : names) {
        if (name != other) subcommand->get_option(name)->excludes(subcommand->get_option(other));
      }
    }
  }
  return subcommand;
}

void SetWords(CLI::App& app) {
  constexpr std::size_t kColumn = 34;
  app.name(kToolName);
  app.set_version_flag("--version", [] {
    return fmt::format("{} {} ({})", kToolName, QUEN_VERSION, common::simd::Name(common::simd::Best()));
  });
  app.get_formatter()->column_width(kColumn);
  app.get_formatter()->label("SUBCOMMAND", "VERB");
  app.get_formatter()->label("Positionals", "Arguments");
  app.failure_message([](const CLI::App*, const CLI::Error& error) {
    return workbench::Sentence(error.what()) + "\nRun with --help for more information.\n";
  });
  app.footer(fmt::format("{}\n\n'{} VERB --help' tells more.\nEnvironment: {}\nExit code: {}", Examples(ToolExamples()),
                         kToolName, kEnvironment, kExitCodes));
}

/// What to say where the first argument is no verb.
CLI::ValidationError NoVerb(const CLI::App& app, const std::vector<Verb>& verbs) {
  std::vector<std::string> names;
  names.reserve(verbs.size());
  for (const Verb& verb : verbs) names.push_back(verb.name);
  const std::vector<std::string> others = app.remaining();
  return CLI::ValidationError("VERB", fmt::format("expected one of {}, found {}", fmt::join(names, ", "),
                                                  others.empty() ? "none" : others.front()));
}

}  // namespace

std::vector<std::string> ToolExamples() {
  return {"quen-shs calibrate sensor", "quen-shs check sensor", "quen-shs loop sensor"};
}

int CommandLine::Run(int argc, char** argv) const {
  CLI::App app(kToolSummary);
  SetWords(app);
  app.require_subcommand(1);
  std::vector<const CLI::App*> subcommands;
  for (const Verb& verb : verbs_) subcommands.push_back(AddVerb(app, verb));
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    const bool lacks_verb = app.get_subcommands().empty() && dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
    std::ostringstream help;
    const int code = lacks_verb ? app.exit(NoVerb(app, verbs_)) : app.exit(error, help);
    Print(help.str());
    return code == 0 ? 0 : kWrongUsage;
  }
  for (std::size_t k = 0; k < verbs_.size(); ++k) {
    if (subcommands[k]->parsed()) verbs_[k].action();
  }
  return 0;
}

}  // namespace quen::tool
