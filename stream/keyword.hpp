#pragma once

#include <cstdint>
#include <string>
#include <variant>

/// @file
/// What is said beside the pixels of a stream, by name.

namespace quen::stream {

/// An integer, a number, or a text of at most 16 bytes.
using KeywordValue = std::variant<std::int64_t, double, std::string>;

/// A name with its value, and what is to be said of it.
struct Keyword {
  std::string name;          ///< 1 to 15 bytes
  KeywordValue value;        ///< keeps its type
  std::string comment = {};  ///< at most 79 bytes
};

}  // namespace quen::stream
