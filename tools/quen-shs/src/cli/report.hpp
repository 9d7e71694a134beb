#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

namespace quen_shs {

using Json = nlohmann::ordered_json;

/// A command's result, for people line by line, or for scripts as one JSON object. Whatever texts hold, people get plain
/// lines.
class Report {
 public:
  /// A value that both see.
  void Add(const std::string& key, Json value, const std::string& label, const std::string& text);
  /// A value for scripts alone, and lines for people alone: one, or as many as the text has.
  void Add(const std::string& key, Json value);
  void AddLine(const std::string& text);
  void AddLines(const std::string& text);
  /// A file that the command wrote; under "files" in JSON.
  void AddFile(const std::string& path);

  /// @throws std::runtime_error  standard output takes no more
  void Print(bool as_json) const;

 private:
  Json json_ = Json::object();
  std::string text_;
};

}  // namespace quen_shs
