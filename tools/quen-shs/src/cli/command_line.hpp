#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

/// @file
/// What a user writes after "quen-shs": a verb, its arguments, and one sentence where they are wrong. The help, the
/// manual pages and the completion come from the same words.

namespace quen_shs {

/// What the help calls the value of an option that takes a centroiding engine. Values that are one of some words are
/// called by these, with bars between them.
inline constexpr const char* kEngineType = "ENGINE";

/// A verb's words.
struct Words {
  std::string name;
  std::string summary;                ///< one line
  std::string details;                ///< paragraphs, an empty line between them
  std::vector<std::string> examples;  ///< command lines
  bool has_engines = false;           ///< takes centroiding engines, which the help then lists
};

/// The arguments of one verb. Each goes to a variable, which keeps its value where the argument is not given. Names begin
/// with "--", but for those of positional arguments.
class Verb {
 public:
  explicit Verb(CLI::App& app) : app_(&app) {}

  /// Names, of files above all; an empty one is refused. A positional argument that must be given, and an option.
  Verb& Required(const char* name, std::string& value, const char* description);
  Verb& Text(const char* name, std::string& value, const char* description);
  /// Text that `check` takes; it throws std::invalid_argument with a reason where it does not.
  Verb& Checked(const char* name, std::string& value, const char* description,
                const std::function<void(const std::string&)>& check);
  Verb& Flag(const char* name, bool& value, const char* description);
  Verb& OneOf(const char* name, std::string& value, const std::vector<std::string>& words, const char* description);

  /// A number from `lowest` to `highest`; a NaN is none.
  Verb& Number(const char* name, double& value, double lowest, double highest, const char* description);
  Verb& Number(const char* name, std::optional<double>& value, double lowest, double highest, const char* description);
  Verb& Number(const char* name, int& value, int lowest, int highest, const char* description);
  Verb& Number(const char* name, std::size_t& value, int lowest, int highest, const char* description);

  /// Of these options one may be given.
  Verb& OneAtMost(const std::vector<std::string>& names);

  /// What several verbs take in the same words.
  Verb& Folder(std::string& value);
  Verb& Noise(double& value);
  Verb& Seed(std::uint32_t& value);
  Verb& Engine(std::string& value);
  Verb& Engines(std::vector<std::string>& values);
  Verb& Json(bool& value);

  /// What the verb does once its arguments are there.
  void Do(std::function<void()> action);

 private:
  template <typename T>
  CLI::Option* Ranged(const char* name, T& value, double lowest, double highest, const char* description);

  CLI::App* app_;
};

class CommandLine {
 public:
  CommandLine();
  ~CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;
  CommandLine(CommandLine&&) = delete;
  CommandLine& operator=(CommandLine&&) = delete;

  Verb Add(const Words& words);

  /// Does what the arguments say. Exceptions of the verb pass through.
  /// @return  exit code: 0, or 2 for wrong usage
  int Run(int argc, char** argv);

  /// The whole command line, for those who write about it.
  [[nodiscard]] const CLI::App& App() const { return *app_; }

 private:
  std::unique_ptr<CLI::App> app_;
};

}  // namespace quen_shs
