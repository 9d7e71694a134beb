#include "tools/quen-shs/cli/command_line.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <iterator>
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

/// A verb as the parser has it.
struct Parsed {
  const Verb* verb;
  const CLI::App* app;
};

/// Adds a verb and those that may follow it.
/// @param parsed  gets those that have an action
void AddVerb(CLI::App& app, const Verb& verb, std::vector<Parsed>& parsed) {
  CLI::App* const subcommand = app.add_subcommand(verb.name, verb.summary);
  subcommand->footer(Footer(verb))->group("Verbs");
  subcommand->set_help_flag(kHelp.name, kHelp.what);
  for (const Argument& argument : verb.arguments) AddArgument(*subcommand, argument, verb.DescriptionOf(argument));
  for (const Verb& next : verb.verbs) AddVerb(*subcommand, next, parsed);
  if (verb.verbs.empty()) {
    parsed.push_back({&verb, subcommand});
  } else {
    subcommand->require_subcommand(1);
  }
}

void SetWords(CLI::App& app) {
  constexpr std::size_t kColumn = 34;
  app.name(kToolName);
  app.set_help_flag(kHelp.name, kHelp.what);
  app.set_version_flag(
      kVersion.name,
      [] { return fmt::format("{} {} ({})", kToolName, QUEN_VERSION, common::simd::Name(common::simd::Best())); },
      kVersion.what);
  app.get_formatter()->column_width(kColumn);
  app.get_formatter()->label("SUBCOMMAND", "VERB");
  app.get_formatter()->label("Positionals", "Arguments");
  app.get_formatter()->label("REQUIRED", "");  // the usage line shows it
  app.footer(fmt::format("{}\n\n'{} VERB --help' tells more.\nEnvironment: {}\nExit code: {}", Examples(ToolExamples()),
                         kToolName, kEnvironment, kExitCodes));
}

// --- Wrong usage

template <typename Error>
bool Is(const CLI::ParseError& error) {
  return dynamic_cast<const Error*>(&error) != nullptr;
}

/// There is no verb where one is due.
/// @param place  "VERB", or the verb that it is to follow
std::string NoVerb(const std::string& place, const CLI::App& app, const std::vector<Verb>& verbs) {
  std::vector<std::string> names;
  std::ranges::transform(verbs, std::back_inserter(names), &Verb::name);
  const std::vector<std::string> others = app.remaining();
  return fmt::format("{}: expected one of {}, found {}", place, fmt::join(names, ", "),
                     others.empty() ? "none" : others.front());
}

std::string NotTaken(const std::string& name, const CLI::App& verb) {
  const std::vector<std::string> others = verb.remaining();
  const auto option = std::ranges::find_if(others, [](const std::string& text) { return text.starts_with('-'); });
  if (option != others.end()) return fmt::format("{}: expected its own options, found {}", name, *option);
  return fmt::format("{}: expected no further argument, found {}", name, others.empty() ? "one" : others.front());
}

/// The name that one of CLI11's sentences begins with.
std::string FirstWord(const std::string& sentence) { return sentence.substr(0, sentence.find_first_of(": ")); }

/// What must be given and is not.
std::string NotGiven(const CLI::App& verb, const std::string& name) {
  const CLI::Option* const option = name.starts_with('-') ? verb.get_option_no_throw(name) : nullptr;
  return fmt::format("{}: expected {}, found none", name, option == nullptr ? "a name" : option->get_type_name());
}

/// A value too many or too few.
std::string WrongCount(const CLI::App& verb, const std::string& name) {
  const CLI::Option* const option = verb.get_option_no_throw(name);
  if (option == nullptr) return fmt::format("--{}: expected no value, found one", name);  // CLI11's way with flags
  if (option->count() > 1) return fmt::format("{}: expected once, found {} times", name, option->count());
  return fmt::format("{}: expected {}, found none", name, option->get_type_name());
}

/// What is wrong with arguments, in one sentence: where, what was expected, what was found. CLI11's own sentences have
/// another form for each case.
/// @param app  after its parsing has failed with `error`
std::string WhatIsWrong(const CLI::App& app, const CLI::ParseError& error, const std::vector<Verb>& verbs) {
  if (app.get_subcommands().empty()) return NoVerb("VERB", app, verbs);
  const CLI::App* found = app.get_subcommands().front();
  std::string name = found->get_name();
  const auto* next = &std::ranges::find(verbs, name, &Verb::name)->verbs;
  while (!next->empty()) {
    if (found->get_subcommands().empty()) return NoVerb(name, *found, *next);
    found = found->get_subcommands().front();
    next = &std::ranges::find(*next, found->get_name(), &Verb::name)->verbs;
    name += " " + found->get_name();
  }
  const CLI::App& verb = *found;
  if (Is<CLI::RequiredError>(error)) return NotGiven(verb, FirstWord(error.what()));
  if (Is<CLI::ExtrasError>(error)) return NotTaken(name, verb);
  if (Is<CLI::ArgumentMismatch>(error)) return WrongCount(verb, FirstWord(error.what()));
  return error.what();
}

/// @throws CLI::ValidationError  two arguments are given of which a verb takes one
void RequireOneOfAlternatives(const CLI::App& subcommand, const Verb& verb) {
  for (const std::vector<std::string>& names : verb.alternatives) {
    std::vector<std::string> given;
    std::ranges::copy_if(names, std::back_inserter(given),
                         [&](const std::string& name) { return subcommand.count(name) > 0; });
    if (given.size() > 1) {
      throw CLI::ValidationError(fmt::format("{}", fmt::join(given, ", ")), given.size() == 2
                                                                                ? "expected one of the two, found both"
                                                                                : "expected one of them, found all");
    }
  }
}

/// @throws CLI::ValidationError  an argument is given that would do nothing
void RequireWhatArgumentsNeed(const CLI::App& subcommand, const Verb& verb) {
  for (const Argument& argument : verb.arguments) {
    if (argument.only_with.empty() || subcommand.count(argument.name) == 0) continue;
    if (subcommand.count(argument.only_with) > 0) continue;
    throw CLI::ValidationError(argument.name, fmt::format("expected {} with it, found none", argument.only_with));
  }
}

}  // namespace

std::vector<std::string> ToolExamples() {
  return {"quen-shs calibrate sensor", "quen-shs check sensor", "quen-shs loop sensor"};
}

std::string Verb::DescriptionOf(const Argument& argument) const {
  std::vector<std::string> others;
  for (const std::vector<std::string>& names : alternatives) {
    if (std::ranges::find(names, argument.name) == names.end()) continue;
    std::ranges::remove_copy(names, std::back_inserter(others), argument.name);
  }
  std::string text = argument.Description();
  if (!argument.only_with.empty()) text += "; only with " + argument.only_with;
  if (!others.empty()) text += fmt::format("; not with {}", fmt::join(others, ", "));
  return text;
}

int CommandLine::Run(int argc, char** argv) const {
  CLI::App app(kToolSummary);
  SetWords(app);
  app.require_subcommand(1);
  std::vector<Parsed> parsed;
  for (const Verb& verb : verbs_) AddVerb(app, verb, parsed);
  try {
    app.parse(argc, argv);
    for (const auto& [verb, subcommand] : parsed) {
      RequireOneOfAlternatives(*subcommand, *verb);
      RequireWhatArgumentsNeed(*subcommand, *verb);
    }
  } catch (const CLI::Success& asked) {
    std::ostringstream text;
    app.exit(asked, text);
    Print(text.str());
    return 0;
  } catch (const CLI::ParseError& error) {
    std::cerr << workbench::Sentence(WhatIsWrong(app, error, verbs_)) << "\nRun with --help for more information.\n";
    return kWrongUsage;
  }
  for (const auto& [verb, subcommand] : parsed) {
    if (subcommand->parsed()) verb->action();
  }
  return 0;
}

namespace {

void AddNames(const std::string& before, const std::vector<Verb>& verbs, std::vector<NamedVerb>& names) {
  for (const Verb& verb : verbs) {
    names.push_back({before + verb.name, &verb});
    AddNames(before + verb.name + " ", verb.verbs, names);
  }
}

}  // namespace

std::vector<NamedVerb> CommandLine::AllVerbs() const {
  std::vector<NamedVerb> names;
  AddNames("", verbs_, names);
  return names;
}

}  // namespace quen::tool
