#include "tools/quen-shs/cli/src/usage.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iterator>

namespace quen::tool {
namespace {

template <typename Error>
bool Is(const CLI::ParseError& error) {
  return dynamic_cast<const Error*>(&error) != nullptr;
}

/// The first argument is no verb.
std::string NoVerb(const CLI::App& app, const std::vector<Verb>& verbs) {
  std::vector<std::string> names;
  std::ranges::transform(verbs, std::back_inserter(names), &Verb::name);
  const std::vector<std::string> others = app.remaining();
  return fmt::format("VERB: expected one of {}, found {}", fmt::join(names, ", "),
                     others.empty() ? "none" : others.front());
}

std::string NotTaken(const CLI::App& verb) {
  const std::vector<std::string> others = verb.remaining();
  const auto option = std::ranges::find_if(others, [](const std::string& text) { return text.starts_with('-'); });
  if (option != others.end()) return fmt::format("{}: expected its own options, found {}", verb.get_name(), *option);
  return fmt::format("{}: expected no further argument, found {}", verb.get_name(),
                     others.empty() ? "one" : others.front());
}

/// The name that one of CLI11's sentences begins with.
std::string FirstWord(const std::string& sentence) { return sentence.substr(0, sentence.find_first_of(": ")); }

/// A value too many or too few.
std::string WrongCount(const CLI::App& verb, const std::string& name) {
  const CLI::Option* const option = verb.get_option_no_throw(name);
  if (option == nullptr) return fmt::format("--{}: expected no value, found one", name);  // CLI11's way with flags
  if (option->count() > 1) return fmt::format("{}: expected once, found {} times", name, option->count());
  return fmt::format("{}: expected {}, found none", name, option->get_type_name());
}

}  // namespace

std::string WhatIsWrong(const CLI::App& app, const CLI::ParseError& error, const std::vector<Verb>& verbs) {
  if (app.get_subcommands().empty()) return NoVerb(app, verbs);
  const CLI::App& verb = *app.get_subcommands().front();
  if (Is<CLI::RequiredError>(error)) return FirstWord(error.what()) + ": expected a name, found none";
  if (Is<CLI::ExtrasError>(error)) return NotTaken(verb);
  if (Is<CLI::ArgumentMismatch>(error)) return WrongCount(verb, FirstWord(error.what()));
  return error.what();
}

void RequireOneOfAlternatives(const CLI::App& subcommand, const Verb& verb) {
  for (const std::vector<std::string>& names : verb.alternatives) {
    std::vector<std::string> given;
    std::ranges::copy_if(names, std::back_inserter(given),
                         [&](const std::string& name) { return subcommand.count(name) > 0; });
    if (given.size() > 1) {
      throw CLI::ValidationError(fmt::format("{}", fmt::join(given, ", ")), "expected one of them, found all");
    }
  }
}

}  // namespace quen::tool
