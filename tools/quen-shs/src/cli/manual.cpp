#include "tools/quen-shs/src/cli/manual.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>

#include "tools/quen-shs/src/engines/engines.hpp"

namespace quen_shs {
namespace {

// --- Roff

/// Text with nothing in it that roff takes for its own.
std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '\\') {
      escaped += "\\e";
    } else if (c == '-') {
      escaped += "\\-";
    } else {
      if ((c == '.' || c == '\'') && (escaped.empty() || escaped.back() == '\n')) escaped += "\\&";
      escaped += c;
    }
  }
  return escaped;
}

std::string Section(const std::string& title) { return ".SH " + title + "\n"; }

/// Lines that stay as they are.
std::string Verbatim(const std::string& text) { return ".nf\n" + Escaped(text) + "\n.fi\n"; }

std::vector<std::string> Paragraphs(const std::string& text) {
  std::vector<std::string> paragraphs;
  std::size_t first = 0;
  while (first < text.size()) {
    const std::size_t end = std::min(text.find("\n\n", first), text.size());
    paragraphs.push_back(text.substr(first, end - first));
    first = end + 2;
  }
  return paragraphs;
}

/// "Example:" and its lines, and whatever else is to stay as it is.
bool IsExample(const std::string& paragraph) { return paragraph.starts_with("Example:"); }
bool IsList(const std::string& paragraph) { return paragraph.find("\n  ") != std::string::npos; }

std::string WithoutFirstLine(const std::string& text) { return text.substr(text.find('\n') + 1); }

// --- What the command line knows

std::vector<const CLI::App*> VerbsOf(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

std::vector<const CLI::Option*> OptionsOf(const CLI::App& app) {
  return app.get_options([](const CLI::Option*) { return true; });
}

std::string Value(const CLI::Option& option) { return option.get_expected_max() == 0 ? "" : option.get_type_name(); }

std::string OptionEntry(const CLI::Option& option) {
  std::string text = fmt::format(".TP\n\\fB{}\\fR", Escaped(option.get_name(option.get_positional(), true)));
  if (!option.get_positional() && !Value(option).empty()) text += fmt::format(" \\fI{}\\fR", Escaped(Value(option)));
  text += "\n" + Escaped(option.get_description());
  if (!option.get_default_str().empty()) text += Escaped(fmt::format(" [{}]", option.get_default_str()));
  return text + "\n";
}

const CLI::App& AppOfPage(const CommandLine& line, const std::string& name) {
  for (const CLI::App* const verb : VerbsOf(line.App())) {
    if (name == line.App().get_name() + "-" + verb->get_name()) return *verb;
  }
  return line.App();
}

std::string Synopsis(const CLI::App& app) {
  std::string text = ".B quen\\-shs\n";
  if (app.get_parent() == nullptr) return text + "\\fIVERB\\fR [\\fIARGUMENT\\fR...]\n";
  text += ".B " + Escaped(app.get_name()) + "\n[\\fIOPTION\\fR...]";
  for (const CLI::Option* const option : OptionsOf(app)) {
    if (!option->get_positional()) continue;
    const std::string name = option->get_name(true);
    text += option->get_required() ? fmt::format(" \\fI{}\\fR", name) : fmt::format(" [\\fI{}\\fR]", name);
  }
  return text + "\n";
}

std::string Description(const std::vector<std::string>& paragraphs) {
  std::string text;
  for (const std::string& paragraph : paragraphs) {
    if (IsExample(paragraph)) continue;
    text += ".PP\n" + (IsList(paragraph) ? Verbatim(paragraph) : Escaped(paragraph) + "\n");
  }
  return text;
}

std::string Examples(const std::vector<std::string>& paragraphs) {
  std::string text;
  for (const std::string& paragraph : paragraphs) {
    if (IsExample(paragraph)) text += Verbatim(WithoutFirstLine(paragraph));
  }
  return text;
}

std::string Verbs(const CLI::App& app) {
  std::string text;
  for (const CLI::App* const verb : VerbsOf(app)) {
    text +=
        fmt::format(".TP\n.BR quen\\-shs\\-{} (1)\n{}\n", Escaped(verb->get_name()), Escaped(verb->get_description()));
  }
  return text;
}

// --- Bash

/// Words that an option takes; none if it takes others.
std::vector<std::string> ValueWords(const CLI::Option& option) {
  if (option.get_type_name() == kEngineType) return EngineNames();
  std::vector<std::string> words;
  std::istringstream stream(Value(option));
  for (std::string word; std::getline(stream, word, '|');) words.push_back(word);
  return words.size() > 1 ? words : std::vector<std::string>();
}

std::string Reply(const std::vector<std::string>& words) {
  return fmt::format("mapfile -t COMPREPLY < <(compgen -W \"{}\" -- \"$word\")", fmt::join(words, " "));
}

}  // namespace

std::vector<std::string> ManualPageNames(const CommandLine& line) {
  std::vector<std::string> names = {line.App().get_name()};
  for (const CLI::App* const verb : VerbsOf(line.App())) names.push_back(names.front() + "-" + verb->get_name());
  return names;
}

std::string ManualPage(const CommandLine& line, const std::string& name) {
  const CLI::App& app = AppOfPage(line, name);
  const std::vector<std::string> paragraphs = Paragraphs(app.get_footer());
  std::string page = fmt::format(".TH {} 1 \"\" \"quen-shs {}\" \"User Commands\"\n", Escaped(name), QUEN_VERSION);
  page += Section("NAME") + Escaped(name) + " \\- " + Escaped(app.get_description()) + "\n";
  page += Section("SYNOPSIS") + Synopsis(app);
  page += Section("DESCRIPTION") + Description(paragraphs);
  if (&app == &line.App()) page += Section("VERBS") + Verbs(app);
  page += Section("OPTIONS");
  for (const CLI::Option* const option : OptionsOf(app)) page += OptionEntry(*option);
  page += Section("EXAMPLES") + Examples(paragraphs);
  page += Section("EXIT STATUS") + "0, 1 for a failed job, 2 for wrong usage.\n";
  if (&app != &line.App()) page += Section("SEE ALSO") + ".BR quen\\-shs (1)\n";
  return page;
}

std::string BashCompletion(const CommandLine& line) {
  std::vector<std::string> verbs;
  std::string values;
  std::string options;
  for (const CLI::App* const verb : VerbsOf(line.App())) {
    verbs.push_back(verb->get_name());
    std::vector<std::string> names;
    for (const CLI::Option* const option : OptionsOf(*verb)) {
      if (option->get_positional()) continue;
      names.push_back("--" + option->get_lnames().front());
      const std::vector<std::string> words = ValueWords(*option);
      if (!words.empty()) {
        values += fmt::format("    \"{} {}\") {}; return ;;\n", verb->get_name(), names.back(), Reply(words));
      }
    }
    options += fmt::format("    {}) {} ;;\n", verb->get_name(), Reply(names));
  }
  return fmt::format(
      "# bash completion for quen-shs; read it with: . <(quen-shs completion)\n"
      "_quen_shs() {{\n"
      "  local word=${{COMP_WORDS[COMP_CWORD]}}\n"
      "  COMPREPLY=()\n"
      "  if [ \"$COMP_CWORD\" -eq 1 ]; then\n"
      "    {}\n"
      "    return\n"
      "  fi\n"
      "  case \"${{COMP_WORDS[1]}} ${{COMP_WORDS[COMP_CWORD-1]}}\" in\n"
      "{}"
      "  esac\n"
      "  [[ $word == -* ]] || return\n"
      "  case \"${{COMP_WORDS[1]}}\" in\n"
      "{}"
      "  esac\n"
      "}}\n"
      "complete -o default -F _quen_shs quen-shs\n",
      Reply(verbs), values, options);
}

}  // namespace quen_shs
