#include "tools/quen-shs/cli/command_line.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "tools/quen-shs/cli/output.hpp"
#include "tools/quen-shs/cli/src/paragraphs.hpp"
#include "tools/quen-shs/cli/src/usage.hpp"
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

void AddArgument(CLI::App& app, const Argument& argument, const std::string& description) {
  const std::string names = argument.name + (argument.alias.empty() ? "" : "," + argument.alias);
  if (argument.IsFlag()) {
    app.add_flag_callback(
           names, [&argument] { Take(argument, ""); }, description)
        ->disable_flag_override();
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
  for (const Argument& argument : verb.arguments) AddArgument(*subcommand, argument, verb.DescriptionOf(argument));
  return subcommand;
}

void SetWords(CLI::App& app) {
  constexpr std::size_t kColumn = 34;
  app.name(kToolName);
  app.set_version_flag("--version", fmt::format("{} {}", kToolName, QUEN_VERSION));
  app.get_formatter()->column_width(kColumn);
  app.get_formatter()->label("SUBCOMMAND", "VERB");
  app.get_formatter()->label("Positionals", "Arguments");
  app.get_formatter()->label("REQUIRED", "");  // the usage line shows it
  app.footer(fmt::format("{}\n\n'{} VERB --help' tells more.\nExit code: {}", Examples(ToolExamples()), kToolName,
                         kExitCodes));
}

}  // namespace

std::vector<std::string> ToolExamples() {
  return {"quen-shs calibrate sensor", "quen-shs check sensor", "quen-shs loop sensor"};
}

std::string Verb::DescriptionOf(const Argument& argument) const {
  std::string text = argument.Description();
  for (const std::vector<std::string>& names : alternatives) {
    if (std::ranges::find(names, argument.name) == names.end()) continue;
    std::vector<std::string> others;
    std::ranges::remove_copy(names, std::back_inserter(others), argument.name);
    text += fmt::format("; not with {}", fmt::join(others, ", "));
  }
  return text;
}

int CommandLine::Run(int argc, char** argv) const {
  CLI::App app(kToolSummary);
  SetWords(app);
  app.require_subcommand(1);
  std::vector<const CLI::App*> subcommands;
  for (const Verb& verb : verbs_) subcommands.push_back(AddVerb(app, verb));
  try {
    app.parse(argc, argv);
    for (std::size_t k = 0; k < verbs_.size(); ++k) RequireOneOfAlternatives(*subcommands[k], verbs_[k]);
  } catch (const CLI::Success& asked) {
    std::ostringstream text;
    app.exit(asked, text);
    Print(text.str());
    return 0;
  } catch (const CLI::ParseError& error) {
    std::cerr << workbench::Sentence(WhatIsWrong(app, error, verbs_)) << "\nRun with --help for more information.\n";
    return kWrongUsage;
  }
  for (std::size_t k = 0; k < verbs_.size(); ++k) {
    if (subcommands[k]->parsed()) verbs_[k].action();
  }
  return 0;
}

}  // namespace quen::tool
