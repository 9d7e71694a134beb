#pragma once

#include <string>
#include <string_view>

/// @file
/// The two ways out: results, and what is to be said of a failure.

namespace quen::tool {

/// Prints on standard output, at once: what is said of a failure stands after it.
/// @throws std::runtime_error  standard output takes no more
/// @throws Interrupted         a signal has come while that was waited for
void Print(const std::string& text);

/// Prints a result on standard error instead, where standard output is a file of the command's.
/// @throws as Print
void PrintAside(const std::string& text);

/// Says a sentence on standard error, under the tool's name and fit for a terminal.
void Say(std::string_view sentence);

/// Says that memory does not suffice, and needs none for it.
void SayOutOfMemory();

}  // namespace quen::tool
