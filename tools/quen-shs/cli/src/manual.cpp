#include "tools/quen-shs/cli/manual.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tools/quen-shs/cli/src/paragraphs.hpp"

namespace quen::tool {
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

std::string Entry(const std::string& heading, const std::string& text) {
  return ".TP\n" + heading + "\n" + text + "\n";
}

std::string Bold(const std::string& text) { return "\\fB" + Escaped(text) + "\\fR"; }
std::string Italic(const std::string& text) { return "\\fI" + Escaped(text) + "\\fR"; }

std::string Title(const std::string& name) {
  return fmt::format(".TH {} 1 \"\" \"{} {}\" \"User Commands\"\n", Escaped(name), kToolName, QUEN_VERSION);
}

std::string Name(const std::string& name, const std::string& summary) {
  return Section("NAME") + Escaped(name) + " \\- " + Escaped(summary) + "\n";
}

std::string ExamplesSection(const std::vector<std::string>& examples) {
  return Section("EXAMPLES") + Verbatim(fmt::format("  {}", fmt::join(examples, "\n  ")));
}

std::string ExitStatus() { return Section("EXIT STATUS") + kExitCodes + "\n"; }

// --- Pages

std::string PageName(const Verb& verb) { return fmt::format("{}-{}", kToolName, verb.name); }

std::string Synopsis(const Verb& verb) {
  std::string text =
      Section("SYNOPSIS") + ".B " + Escaped(kToolName) + "\n.B " + Escaped(verb.name) + "\n[\\fIOPTION\\fR...]";
  for (const Argument& argument : verb.arguments) {
    if (!argument.IsPositional()) continue;
    text += argument.is_required ? " " + Italic(argument.name) : " [" + Italic(argument.name) + "]";
  }
  return text + "\n";
}

std::string Description(const Verb& verb) {
  std::string text = Section("DESCRIPTION");
  for (const std::string& paragraph : Paragraphs(verb.details)) text += ".PP\n" + Escaped(paragraph) + "\n";
  if (!verb.list.empty()) text += ".PP\n" + Verbatim(verb.list);
  return text;
}

std::string Options(const Verb& verb) {
  std::string text = Section("OPTIONS") + Entry(Bold(kHelp.name), kHelp.what);
  for (const Argument& argument : verb.arguments) {
    const std::string names = argument.name + (argument.alias.empty() ? "" : "," + argument.alias);
    text += Entry(Bold(names) + (argument.value.empty() ? "" : " " + Italic(argument.value)),
                  Escaped(verb.DescriptionOf(argument)));
  }
  return text;
}

std::string VerbPage(const Verb& verb) {
  return Title(PageName(verb)) + Name(PageName(verb), verb.summary) + Synopsis(verb) + Description(verb) +
         Options(verb) + ExamplesSection(verb.examples) + ExitStatus() + Section("SEE ALSO") + ".BR " +
         Escaped(kToolName) + " (1)\n";
}

std::string ToolPage(const CommandLine& line) {
  std::string text = Title(kToolName) + Name(kToolName, kToolSummary) + Section("SYNOPSIS") + ".B " +
                     Escaped(kToolName) + "\n\\fIVERB\\fR [\\fIARGUMENT\\fR...]\n" + Section("DESCRIPTION") +
                     "Each verb has a manual page of its own, and tells of itself with\n" + Bold("--help") + ".\n" +
                     Section("VERBS");
  for (const Verb& verb : line.Verbs()) {
    text += Entry(".BR " + Escaped(PageName(verb)) + " (1)", Escaped(verb.summary));
  }
  return text + Section("OPTIONS") + Entry(Bold(kHelp.name), kHelp.what) + Entry(Bold(kVersion.name), kVersion.what) +
         Section("ENVIRONMENT") + Escaped(kEnvironment) + "\n" + ExamplesSection(ToolExamples()) + ExitStatus();
}

// --- Bash

std::string Reply(const std::vector<std::string>& words) {
  return fmt::format("mapfile -t COMPREPLY < <(compgen -W \"{}\" -- \"$word\")", fmt::join(words, " "));
}

}  // namespace

std::vector<std::string> ManualPageNames(const CommandLine& line) {
  std::vector<std::string> names = {kToolName};
  for (const Verb& verb : line.Verbs()) names.push_back(PageName(verb));
  return names;
}

std::string ManualPage(const CommandLine& line, const std::string& name) {
  for (const Verb& verb : line.Verbs()) {
    if (name == PageName(verb)) return VerbPage(verb);
  }
  return ToolPage(line);
}

std::string BashCompletion(const CommandLine& line) {
  std::vector<std::string> verbs;
  std::string values;
  std::string options;
  for (const Verb& verb : line.Verbs()) {
    verbs.push_back(verb.name);
    std::vector<std::string> names = {"--help"};
    for (const Argument& argument : verb.arguments) {
      if (argument.IsPositional()) continue;
      names.push_back(argument.name);
      if (argument.words.empty()) continue;
      values += fmt::format("    \"{} {}\") {}; return ;;\n", verb.name, argument.name, Reply(argument.words));
    }
    options += fmt::format("    {}) {} ;;\n", verb.name, Reply(names));
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

}  // namespace quen::tool
