#include "tools/quen-shs/src/cli/report.hpp"

#include <fmt/format.h>

#include <cstdio>

namespace quen_shs {

void Report::Add(const std::string& key, Json value, const std::string& label, const std::string& text) {
  Add(key, std::move(value));
  AddLines(fmt::format("{:<24}{}\n", label, text));
}

void Report::Add(const std::string& key, Json value) { json_[key] = std::move(value); }

void Report::AddLines(const std::string& text) { text_ += text; }

void Report::AddFile(const std::string& path) {
  json_["files"].push_back(path);
  AddLines("wrote " + path + "\n");
}

void Report::Print(bool as_json) const {
  // Not finite numbers become null, and bytes that are no UTF-8 a question mark.
  const std::string text = as_json ? json_.dump(2, ' ', false, Json::error_handler_t::replace) + "\n" : text_;
  static_cast<void>(std::fputs(text.c_str(), stdout));
}

}  // namespace quen_shs
