#pragma once

#include <string>

namespace quen::testing {

/// How a shell command ended and what it printed.
struct Outcome {
  int exit_code;  ///< −1 where a signal ended it
  std::string out;
  std::string err;
};

/// Runs a shell command without a terminal.
Outcome Run(const std::string& command);

/// Text as one word of a shell command.
std::string Quoted(const std::string& text);

}  // namespace quen::testing
