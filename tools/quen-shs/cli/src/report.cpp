#include "tools/quen-shs/cli/report.hpp"

#include <fmt/format.h>

#include <sstream>
#include <stdexcept>

#include "tools/quen-shs/cli/output.hpp"
#include "workbench/fits/plain_text.hpp"
#include "workbench/fits/staged_file.hpp"

namespace quen::tool {

void Report::Add(const std::string& key, Json value, const std::string& label, const std::string& text) {
  Add(key, std::move(value));
  AddLine(fmt::format("{:<24}{}", label, text));
}

void Report::Add(const std::string& key, Json value) { json_[key] = std::move(value); }

void Report::AddLine(const std::string& text) { text_ += workbench::Sentence(text) + "\n"; }

void Report::AddLines(const std::string& text) {
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) AddLine(line);
}

void Report::AddFiles(const workbench::StagedFiles& files) {
  for (const std::string& name : files.Names()) {
    json_["files"].push_back(name);
    AddLine("wrote " + name);
  }
  goes_to_standard_error_ = files.TakeStandardOutput();
}

void Report::Print(bool as_json) const {
  // Not finite numbers become null, and bytes that are no UTF-8 a mark for such.
  const std::string text = as_json ? json_.dump(2, ' ', false, Json::error_handler_t::replace) + "\n" : text_;
  const auto print = goes_to_standard_error_ ? &PrintAside : &quen::tool::Print;
  try {
    print(text);
  } catch (const std::runtime_error& error) {
    if (!json_.contains("files")) throw;
    throw std::runtime_error(std::string(error.what()) + "; the files are written");
  }
}

}  // namespace quen::tool
