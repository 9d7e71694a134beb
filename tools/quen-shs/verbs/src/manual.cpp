#include "tools/quen-shs/cli/manual.hpp"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include "tools/quen-shs/cli/output.hpp"
#include "tools/quen-shs/verbs/verbs.hpp"
#include "workbench/fits/staged_file.hpp"

namespace quen::tool {
namespace {

struct ManualArguments {
  std::string verb;    ///< the whole tool if empty
  std::string folder;  ///< for all pages; one page is printed if empty
};

void WritePages(const CommandLine& line, const std::string& folder) {
  std::vector<std::string> names;
  std::vector<std::string> pages;
  for (const std::string& name : ManualPageNames(line)) {
    names.push_back((std::filesystem::path(folder) / (name + ".1")).string());
    pages.push_back(ManualPage(line, name));
  }
  workbench::StagedFiles files(names);
  files.GiveAll(std::move(pages));
  files.Commit();
}

void PrintPage(const CommandLine& line, const std::string& verb) {
  const std::vector<std::string> names = ManualPageNames(line);
  const std::string name = verb.empty() ? names.front() : names.front() + "-" + verb;
  if (std::ranges::find(names, name) == names.end()) {
    throw std::runtime_error("there is no manual page for " + verb + "; 'quen-shs --help' lists the verbs");
  }
  Print(ManualPage(line, name));
}

}  // namespace

void AddManual(CommandLine& line) {
  const auto command = std::make_shared<ManualArguments>();
  line.Add({.name = "manual",
            .summary = "Print a manual page",
            .details = "Prints the manual page of a verb, or of the tool, for man(1).",
            .examples = {"quen-shs manual loop | man -l -", "quen-shs manual --folder man1"},
            .arguments = {OptionalPositional("VERB", "Verb whose page is printed", "the whole tool", command->verb),
                          Folder("--folder", "Folder to write all pages to instead; made if missing", "none",
                                 command->folder)},
            .action = [command, &line] {
              if (command->folder.empty()) {
                PrintPage(line, command->verb);
              } else {
                WritePages(line, command->folder);
              }
            }});
}

void AddCompletion(CommandLine& line) {
  line.Add({.name = "completion",
            .summary = "Print completion for bash",
            .details = R"(
Prints a script that lets bash complete verbs, options and their words. Where quen-shs is installed, bash finds the
script by itself.)",
            .examples = {". <(quen-shs completion)"},
            .action = [&line] { Print(BashCompletion(line)); }});
}

}  // namespace quen::tool
