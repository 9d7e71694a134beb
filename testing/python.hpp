#pragma once

#include <string>

#include "testing/process.hpp"

/// @file
/// Python programs in one interpreter.

namespace quen::testing {

/// Runs a Python program, which finds the modules of testing/. All programs of a process run in one interpreter, each
/// with names of its own, as importing astropy takes longer than most of what tests do with it.
Outcome RunPython(const std::string& program);

/// Text as a Python string.
std::string PythonText(const std::string& text);

}  // namespace quen::testing
