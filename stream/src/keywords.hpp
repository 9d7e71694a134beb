#pragma once

#include <string>

#include "stream/keyword.hpp"
#include "stream/layout.hpp"

/// @file
/// Keywords between a program and the file. Internal to the library.

namespace quen::stream {

/// @throws std::invalid_argument  a name, a comment or a text that is too long, or no name
void RequireFits(const Keyword& keyword);
/// @throws std::invalid_argument  a text that is too long
void RequireFits(const std::string& name, const KeywordValue& value);

/// Of an entry that nobody reads yet.
void Describe(const Keyword& keyword, KeywordEntry& entry);

/// Puts a value into an entry that others may read; counts it.
void Write(const KeywordValue& value, KeywordEntry& entry);

bool IsInUse(const KeywordEntry& entry);
std::string NameOf(const KeywordEntry& entry);
std::string CommentOf(const KeywordEntry& entry);

/// The value that is there now, in place of what `value` was. A type that is none of the three is taken for a text.
void Read(KeywordEntry& entry, KeywordValue& value);

}  // namespace quen::stream
