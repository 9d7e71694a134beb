#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

namespace quen::workbench {
class StagedFiles;
}

namespace quen::tool {

using Json = nlohmann::ordered_json;

/// A command's result, for people line by line, or for scripts as one JSON object. Whatever texts hold, people get
/// plain lines.
class Report {
 public:
  /// A value that both see.
  void Add(const std::string& key, Json value, const std::string& label, const std::string& text);
  /// A value for scripts alone, and lines for people alone: one, or as many as the text has.
  void Add(const std::string& key, Json value);
  void AddLine(const std::string& text);
  void AddLines(const std::string& text);
  /// The files that the command wrote; under "files" in JSON. If the standard output is one of them, the report goes to
  /// the standard error.
  void AddFiles(const workbench::StagedFiles& files);

  /// @throws std::runtime_error  the output that it goes to takes no more; the message says so if files are written
  /// @throws Interrupted         a signal has come while it waited for that output
  void Print(bool as_json) const;

 private:
  Json json_ = Json::object();
  std::string text_;
  bool goes_to_standard_error_ = false;
};

}  // namespace quen::tool
