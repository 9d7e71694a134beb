#include "tools/quen-shs/src/cli/report.hpp"

#include <fmt/format.h>

#include <cstdio>
#include <stdexcept>

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
  // At once, so that it stands before what is said of a failure; a full disk shows here.
  if (std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout) != 0) {
    throw std::runtime_error("the result cannot be printed: standard output takes no more");
  }
}

}  // namespace quen_shs
