#include "tools/quen-shs/src/cli/report.hpp"

#include <fmt/format.h>

#include <sstream>

#include "tools/quen-shs/src/cli/output.hpp"
#include "tools/quen-shs/src/cli/plain_text.hpp"

namespace quen_shs {

void Report::Add(const std::string& key, Json value, const std::string& label, const std::string& text) {
  Add(key, std::move(value));
  AddLine(fmt::format("{:<24}{}", label, text));
}

void Report::Add(const std::string& key, Json value) { json_[key] = std::move(value); }

void Report::AddLine(const std::string& text) { text_ += Sentence(text) + "\n"; }

void Report::AddLines(const std::string& text) {
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) AddLine(line);
}

void Report::AddFile(const std::string& path) {
  json_["files"].push_back(path);
  AddLine("wrote " + path);
}

void Report::Print(bool as_json) const {
  // Not finite numbers become null, and bytes that are no UTF-8 a mark for such.
  quen_shs::Print(as_json ? json_.dump(2, ' ', false, Json::error_handler_t::replace) + "\n" : text_);
}

}  // namespace quen_shs
