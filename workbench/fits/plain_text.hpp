#pragma once

#include <string>
#include <string_view>

/// @file
/// What files and arguments hold, fit to be shown to people: names and values may be long, in no known encoding, or
/// made to command a terminal.

namespace quen::workbench {

/// No sentence is longer, in bytes.
inline constexpr std::size_t kLongestSentence = 800;

/// The text as UTF-8 without control characters: these, line and paragraph separators, what changes the direction of
/// writing, and bytes that are not UTF-8, become question marks.
std::string Plain(std::string_view text);

/// The same, shortened in the middle to the longest sentence.
std::string Sentence(std::string_view text);

}  // namespace quen::workbench
