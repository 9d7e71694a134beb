#include "tools/quen-shs/cli/manual.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iterator>

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

/// @param verb  as it is called, "campaign plan"
std::string PageName(std::string verb) {
  std::ranges::replace(verb, ' ', '-');
  return fmt::format("{}-{}", kToolName, verb);
}

std::string Synopsis(const std::string& name, const Verb& verb) {
  const std::string call = Section("SYNOPSIS") + ".B " + Escaped(kToolName) + "\n.B " + Escaped(name) + "\n";
  if (!verb.verbs.empty()) return call + "\\fIVERB\\fR [\\fIARGUMENT\\fR...]\n";
  std::string text = call + "[\\fIOPTION\\fR...]";
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

/// What may follow a verb; empty if nothing may.
std::string NextVerbs(const std::string& name, const std::vector<Verb>& verbs) {
  std::string text;
  for (const Verb& verb : verbs) {
    text += Entry(".BR " + Escaped(PageName(name + verb.name)) + " (1)", Escaped(verb.summary));
  }
  return text.empty() ? "" : Section("VERBS") + text;
}

std::string VerbPage(const std::string& name, const Verb& verb) {
  return Title(PageName(name)) + Name(PageName(name), verb.summary) + Synopsis(name, verb) + Description(verb) +
         NextVerbs(name + " ", verb.verbs) + Options(verb) + ExamplesSection(verb.examples) + ExitStatus() +
         Section("SEE ALSO") + ".BR " + Escaped(kToolName) + " (1)\n";
}

std::string ToolPage(const CommandLine& line) {
  const std::string text = Title(kToolName) + Name(kToolName, kToolSummary) + Section("SYNOPSIS") + ".B " +
                           Escaped(kToolName) + "\n\\fIVERB\\fR [\\fIARGUMENT\\fR...]\n" + Section("DESCRIPTION") +
                           "Each verb has a manual page of its own, and tells of itself with\n" + Bold("--help") +
                           ".\n" + NextVerbs("", line.Verbs());
  return text + Section("OPTIONS") + Entry(Bold(kHelp.name), kHelp.what) + Entry(Bold(kVersion.name), kVersion.what) +
         Section("ENVIRONMENT") + Escaped(kEnvironment) + "\n" + ExamplesSection(ToolExamples()) + ExitStatus();
}

// --- Bash

std::string Reply(const std::vector<std::string>& words) {
  return fmt::format("mapfile -t COMPREPLY < <(compgen -W \"{}\" -- \"$word\")", fmt::join(words, " "));
}

std::vector<std::string> NamesOf(const std::vector<Verb>& verbs) {
  std::vector<std::string> names;
  std::ranges::transform(verbs, std::back_inserter(names), &Verb::name);
  return names;
}

}  // namespace

std::vector<std::string> ManualPageNames(const CommandLine& line) {
  std::vector<std::string> names = {kToolName};
  for (const auto& [name, verb] : line.AllVerbs()) names.push_back(PageName(name));
  return names;
}

std::string ManualPage(const CommandLine& line, const std::string& name) {
  for (const auto& [words, verb] : line.AllVerbs()) {
    if (name == PageName(words)) return VerbPage(words, *verb);
  }
  return ToolPage(line);
}

std::string BashCompletion(const CommandLine& line) {
  std::string groups;  // verbs that another one follows
  std::string values;
  std::string options;
  for (const auto& [name, verb] : line.AllVerbs()) {
    if (!verb->verbs.empty()) {
      groups += fmt::format(
          "  if [ \"$verb\" = \"{}\" ]; then\n    [ \"$COMP_CWORD\" -gt 2 ] || {{ {}; return; }}\n"
          "    verb+=\" ${{COMP_WORDS[2]}}\"\n  fi\n",
          name, Reply(NamesOf(verb->verbs)));
    }
    std::vector<std::string> names = {"--help"};
    for (const Argument& argument : verb->arguments) {
      if (argument.IsPositional()) continue;
      names.push_back(argument.name);
      if (argument.words.empty()) continue;
      values += fmt::format("    \"{} {}\") {}; return ;;\n", name, argument.name, Reply(argument.words));
    }
    options += fmt::format("    \"{}\") {} ;;\n", name, Reply(names));
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
      "  local verb=${{COMP_WORDS[1]}}\n"
      "{}"
      "  case \"$verb ${{COMP_WORDS[COMP_CWORD-1]}}\" in\n"
      "{}"
      "  esac\n"
      "  [[ $word == -* ]] || return\n"
      "  case \"$verb\" in\n"
      "{}"
      "  esac\n"
      "}}\n"
      "complete -o default -F _quen_shs quen-shs\n",
      Reply(NamesOf(line.Verbs())), groups, values, options);
}

}  // namespace quen::tool
