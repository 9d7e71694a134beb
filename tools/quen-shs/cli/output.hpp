#pragma once

#include <string>
#include <string_view>

/// @file
/// The two ways out: results, and what is to be said of a failure.

namespace quen::tool {

/// Prints on standard output, unbuffered: a message about a later failure stands after it.
/// @throws std::runtime_error  standard output takes no more
/// @throws Interrupted         a signal has come while it waited for standard output
void Print(const std::string& text);

/// Prints a result on standard error instead, where standard output is one of the command's files.
/// @throws as Print
void PrintAside(const std::string& text);

/// Says a sentence on standard error, under the tool's name and fit for a terminal.
void Say(std::string_view sentence);

/// Says that memory has run out, without taking any.
void SayOutOfMemory();

}  // namespace quen::tool
