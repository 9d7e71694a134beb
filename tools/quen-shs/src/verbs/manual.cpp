#include "tools/quen-shs/src/cli/manual.hpp"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include "tools/quen-shs/src/cli/output.hpp"
#include "tools/quen-shs/src/files/staged_file.hpp"
#include "tools/quen-shs/src/verbs/verbs.hpp"

namespace quen_shs {
namespace {

struct ManualCommand {
  std::string verb;    ///< all of the tool if empty
  std::string output;  ///< folder for all pages; if empty, one page is printed
};

void WritePages(const CommandLine& line, const std::string& folder) {
  std::vector<std::string> names;
  std::vector<std::string> pages;
  for (const std::string& name : ManualPageNames(line)) {
    names.push_back((std::filesystem::path(folder) / (name + ".1")).string());
    pages.push_back(ManualPage(line, name));
  }
  StagedFiles files(names);
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
  const auto command = std::make_shared<ManualCommand>();
  line.Add({"manual",
            "Print a manual page",
            "Prints the manual page of a verb, or of the tool, in the words of its help, for man(1).",
            {"quen-shs manual loop | man -l -", "quen-shs manual --output man1"}})
      .Text("VERB", command->verb, "Whose page [the tool's]")
      .Text("--output", command->output, "Folder to write all pages to instead; made if missing")
      .Do([command, &line] {
        if (command->output.empty()) {
          PrintPage(line, command->verb);
        } else {
          WritePages(line, command->output);
        }
      });
}

void AddCompletion(CommandLine& line) {
  line.Add({"completion",
            "Print completion for bash",
            "Prints a script that lets bash complete verbs, options and their words. An installed quen-shs has it in\n"
            "place already.",
            {". <(quen-shs completion)"}})
      .Do([&line] { Print(BashCompletion(line)); });
}

}  // namespace quen_shs
