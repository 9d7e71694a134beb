#pragma once

#include <string>
#include <vector>

namespace quen::tool {

/// Paragraphs of a text, between which empty lines stand, each in one line.
std::vector<std::string> Paragraphs(const std::string& text);

/// A paragraph in lines of at most `width` bytes, broken at blanks.
std::string Filled(const std::string& paragraph, std::size_t width);

}  // namespace quen::tool
