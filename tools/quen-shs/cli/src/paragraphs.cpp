#include "tools/quen-shs/cli/src/paragraphs.hpp"

#include <sstream>

namespace quen::tool {

std::vector<std::string> Paragraphs(const std::string& text) {
  std::vector<std::string> paragraphs;
  std::istringstream lines(text);
  bool goes_on = false;
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty()) {
      if (goes_on) {
        paragraphs.back() += " " + line;
      } else {
        paragraphs.push_back(line);
      }
    }
    goes_on = !line.empty();
  }
  return paragraphs;
}

std::string Filled(const std::string& paragraph, std::size_t width) {
  std::string text;
  std::size_t column = 0;
  std::istringstream words(paragraph);
  for (std::string word; words >> word;) {
    const bool fits = column + 1 + word.size() <= width;
    if (column > 0) text += fits ? " " : "\n";
    text += word;
    column = column > 0 && fits ? column + 1 + word.size() : word.size();
  }
  return text;
}

}  // namespace quen::tool
