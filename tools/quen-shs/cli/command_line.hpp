#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/quen-shs/cli/argument.hpp"

/// @file
/// What a user writes after "quen-shs": a verb, its arguments, and one sentence where they are wrong.

namespace quen::tool {

inline constexpr const char* kToolName = "quen-shs";
inline constexpr const char* kToolSummary =
    "Simulates a Shack-Hartmann wavefront sensor: calibrations, frames, slopes, control loops, pictures.";
inline constexpr const char* kEnvironment =
    "QUEN_SIMD=plain, avx2 or avx512 forces the instructions used; --version says which they are.";

/// What every verb, or the tool itself, takes beside its arguments.
struct CommonOption {
  const char* name;
  const char* what;
};
inline constexpr CommonOption kHelp = {"-h,--help", "Print the help and exit"};
inline constexpr CommonOption kVersion = {"--version", "Print the version, and the instructions used, and exit"};

inline constexpr const char* kExitCodes = "0, 1 for a failed job, 2 for wrong usage.";

/// The first commands of a new user.
std::vector<std::string> ToolExamples();

/// A verb, whole: what is told of it, its arguments, and what it does.
struct Verb {
  std::string name;
  std::string summary;                ///< one line
  std::string details;                ///< paragraphs with an empty line between them; other line ends count as blanks
  std::string list = {};              ///< lines that stay as they are, after the details; may be empty
  std::vector<std::string> examples;  ///< command lines
  std::vector<Argument> arguments = {};
  std::vector<std::vector<std::string>> alternatives = {};  ///< names of arguments of which at most one may be given
  std::function<void()> action = {};                        ///< once the arguments have filled their variables
  std::vector<Verb> verbs = {};                             ///< of which one follows, in place of arguments and action

  /// An argument's line in help and manual: its own description, and what it cannot be given with.
  [[nodiscard]] std::string DescriptionOf(const Argument& argument) const;
};

/// A verb and the words that lead to it, "campaign plan" for instance.
struct NamedVerb {
  std::string name;
  const Verb* verb;
};

class CommandLine {
 public:
  void Add(Verb verb) { verbs_.push_back(std::move(verb)); }

  /// Does what the arguments say. Exceptions of the verb pass through.
  /// @return  exit code: 0, or 2 for wrong usage
  int Run(int argc, char** argv) const;

  /// In the order in which they were added.
  [[nodiscard]] const std::vector<Verb>& Verbs() const { return verbs_; }
  /// The same, each with those that may follow it behind it.
  [[nodiscard]] std::vector<NamedVerb> AllVerbs() const;

 private:
  std::vector<Verb> verbs_;
};

}  // namespace quen::tool
