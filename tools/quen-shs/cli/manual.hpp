#pragma once

#include <string>
#include <vector>

#include "tools/quen-shs/cli/command_line.hpp"

/// @file
/// What is written about the command line beside its help: manual pages for man(1), and completion for bash.

namespace quen::tool {

/// Names of the pages: "quen-shs" and one per verb, "quen-shs-loop" for instance.
std::vector<std::string> ManualPageNames(const CommandLine& line);

/// One of them, as roff source.
/// @param name  one of ManualPageNames
std::string ManualPage(const CommandLine& line, const std::string& name);

/// A script for bash that completes verbs, options and words for values, and files elsewhere.
std::string BashCompletion(const CommandLine& line);

}  // namespace quen::tool
