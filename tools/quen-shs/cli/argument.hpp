#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/checks/limits.hpp"

/// @file
/// An argument of a verb, defined once: the parser, the help, the manual pages and the completion read the same words,
/// ranges and defaults.

namespace quen::tool {

struct Argument {
  std::string name;                     ///< "--gain"; of a positional argument "DIR"
  std::string what;                     ///< what it is, in words
  std::string value = {};               ///< what the help calls its value; empty for a flag and a positional argument
  std::string unit = {};                ///< of a number; empty if it has none
  std::string range = {};               ///< of a number, "0 to 2"; empty if it has none
  std::string otherwise = {};           ///< what holds where it is not given; empty if that needs no word
  std::string alias = {};               ///< another name for it; empty if it has none
  std::string only_with = {};           ///< the argument without which it would do nothing; empty if there is none
  std::vector<std::string> words = {};  ///< values to complete
  bool is_required = false;             ///< it must be given
  bool may_be_repeated = false;         ///< takes its value each time
  std::function<void(const std::string&)> take;  ///< throws std::invalid_argument with a reason for a wrong value

  [[nodiscard]] bool IsPositional() const { return !name.starts_with('-'); }
  [[nodiscard]] bool IsFlag() const { return value.empty() && !IsPositional(); }

  /// Its line in the help: what it is, unit, range, and what holds where it is not given.
  [[nodiscard]] std::string Description() const;
};

/// The same arguments, which do nothing without another one, and are refused then.
std::vector<Argument> OnlyWith(const std::string& other, std::vector<Argument> arguments);

/// The same argument, which must be given.
Argument Required(Argument argument);

// What arguments there are. Each fills a variable, which keeps its value where the argument is not given.

/// A name, usually of a file; an empty one is refused.
Argument Positional(const std::string& name, const std::string& what, std::string& variable);
Argument OptionalPositional(const std::string& name, const std::string& what, const std::string& otherwise,
                            std::string& variable);
/// @param otherwise  what holds where it is not given
Argument File(const std::string& name, const std::string& what, const std::string& otherwise, std::string& variable);
Argument Folder(const std::string& name, const std::string& what, const std::string& otherwise, std::string& variable);

Argument Flag(const std::string& name, const std::string& what, bool& variable);

Argument OneOf(const std::string& name, const std::string& what, const std::vector<std::string>& words,
               std::string& variable);

/// Text that `check` accepts; where it does not, it throws std::invalid_argument with a reason.
/// @param value  what the help calls it, or its form: "NAME:PIXELS"
Argument Checked(const std::string& name, const std::string& what, const std::string& value,
                 const std::function<void(const std::string&)>& check, std::string& variable);

/// A number, in decimal digits; NaN is refused.
/// @param unit    may be empty
/// @param limits  both of which are allowed
Argument Number(const std::string& name, const std::string& what, const std::string& unit, const common::Limits& limits,
                double& variable);
/// @param otherwise  what holds where it is not given
Argument Number(const std::string& name, const std::string& what, const std::string& unit, const common::Limits& limits,
                const std::string& otherwise, std::optional<double>& variable);

/// A whole number.
Argument Number(const std::string& name, const std::string& what, const std::string& unit, const common::Limits& limits,
                int& variable);
Argument Number(const std::string& name, const std::string& what, const std::string& unit, const common::Limits& limits,
                std::size_t& variable);
Argument Number(const std::string& name, const std::string& what, const std::string& unit, const common::Limits& limits,
                const std::string& otherwise, std::optional<std::size_t>& variable);
/// Any unsigned number of 32 bits.
Argument Number(const std::string& name, const std::string& what, std::uint32_t& variable);

}  // namespace quen::tool
