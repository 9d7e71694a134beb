#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

/// @file
/// An argument of a verb, defined once: the parser, the help, the manual pages and the completion read the same words,
/// ranges and defaults.

namespace quen::tool {

struct Argument {
  std::string name;                     ///< "--gain"; of a positional argument "DIR"
  std::string what;                     ///< in words
  std::string value = {};               ///< what the help calls its value; empty for a flag and a positional argument
  std::string unit = {};                ///< of a number; empty without
  std::string range = {};               ///< of a number, "0 to 2"; empty without
  std::string otherwise = {};           ///< what holds where it is not given; empty if nothing is to be said
  std::string alias = {};               ///< another name for it; empty without
  std::vector<std::string> words = {};  ///< values to complete
  bool is_required = false;             ///< positional arguments only
  bool may_be_repeated = false;         ///< takes its value each time
  std::function<void(const std::string&)> take;  ///< throws std::invalid_argument with a reason for a wrong value

  [[nodiscard]] bool IsPositional() const { return !name.starts_with('-'); }
  [[nodiscard]] bool IsFlag() const { return value.empty() && !IsPositional(); }

  /// All that is said of it in one line.
  [[nodiscard]] std::string Description() const;
};

// What arguments there are. Each fills a variable, which keeps its value where the argument is not given.

/// A name, of a file above all; an empty one is refused.
Argument Positional(const std::string& name, const std::string& what, std::string& variable);
Argument OptionalPositional(const std::string& name, const std::string& what, const std::string& otherwise,
                            std::string& variable);
/// @param otherwise  what holds where it is not given
Argument File(const std::string& name, const std::string& what, const std::string& otherwise, std::string& variable);
Argument Folder(const std::string& name, const std::string& what, const std::string& otherwise, std::string& variable);

Argument Flag(const std::string& name, const std::string& what, bool& variable);

Argument OneOf(const std::string& name, const std::string& what, const std::vector<std::string>& words,
               std::string& variable);

/// Text that `check` takes; it throws std::invalid_argument with a reason where it does not.
/// @param value  what the help calls it, or its form: "NAME:PIXELS"
Argument Checked(const std::string& name, const std::string& what, const std::string& value,
                 const std::function<void(const std::string&)>& check, std::string& variable);

/// A number from `lowest` to `highest`, in decimal digits; a NaN is none.
/// @param unit  may be empty
Argument Number(const std::string& name, const std::string& what, const std::string& unit, double lowest,
                double highest, double& variable);
/// @param otherwise  what holds where it is not given
Argument Number(const std::string& name, const std::string& what, const std::string& unit, double lowest,
                double highest, const std::string& otherwise, std::optional<double>& variable);

/// A whole number.
Argument Number(const std::string& name, const std::string& what, const std::string& unit, int lowest, int highest,
                int& variable);
Argument Number(const std::string& name, const std::string& what, const std::string& unit, int lowest, int highest,
                std::size_t& variable);
/// Any number of 32 bits.
Argument Number(const std::string& name, const std::string& what, std::uint32_t& variable);

}  // namespace quen::tool
