#include "tools/quen-shs/cli/argument.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <type_traits>

namespace quen::tool {
namespace {

/// The number that a text is from its first character to its last, in decimal digits: 010 is ten, and 0x10 none.
template <typename T>
std::optional<T> Decimal(std::string_view text) {
  if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
  T value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

/// As a person writes it: 1000000, not 1e+06.
template <typename T>
std::string InDigits(T number) {
  constexpr double kWhole = 1e15;  // larger ones are not all whole
  if constexpr (std::is_floating_point_v<T>) {
    if (std::abs(number) >= kWhole || number != std::trunc(number)) return fmt::format("{:g}", number);
    return fmt::format("{:.0f}", number);
  } else {
    return fmt::format("{}", number);
  }
}

template <typename T>
T InRange(const std::string& text, T lowest, T highest) {
  const std::optional<T> number = Decimal<T>(text);
  if (number && *number >= lowest && *number <= highest) return *number;
  throw std::invalid_argument(fmt::format("expected a {} from {} to {}, found {}",
                                          std::is_integral_v<T> ? "whole number" : "number", InDigits(lowest),
                                          InDigits(highest), text));
}

/// A number of one type, for a variable of that type or of another.
template <typename T, typename Variable>
Argument Ranged(const std::string& name, const std::string& what, const std::string& unit, T lowest, T highest,
                const std::string& otherwise, Variable& variable) {
  return {.name = name,
          .what = what,
          .value = std::is_integral_v<T> ? "INTEGER" : "NUMBER",
          .unit = unit,
          .range = InDigits(lowest) + " to " + InDigits(highest),
          .otherwise = otherwise,
          .take = [=, &variable](const std::string& text) { variable = InRange(text, lowest, highest); }};
}

/// Not empty: an argument that is left out is another matter.
std::function<void(const std::string&)> TakesAName(std::string& variable) {
  return [&variable](const std::string& text) {
    if (text.empty()) throw std::invalid_argument("expected a name, found an empty one");
    variable = text;
  };
}

}  // namespace

std::vector<Argument> OnlyWith(const std::string& other, std::vector<Argument> arguments) {
  for (Argument& argument : arguments) argument.only_with = other;
  return arguments;
}

Argument Required(Argument argument) {
  argument.is_required = true;
  argument.otherwise = "must be given";
  return argument;
}

std::string Argument::Description() const {
  std::string text = what;
  if (!unit.empty()) text += ", " + unit;
  if (!range.empty()) text += ", " + range;
  if (!otherwise.empty()) text += " [" + otherwise + "]";
  return text;
}

Argument Positional(const std::string& name, const std::string& what, std::string& variable) {
  return {.name = name, .what = what, .is_required = true, .take = TakesAName(variable)};
}

Argument OptionalPositional(const std::string& name, const std::string& what, const std::string& otherwise,
                            std::string& variable) {
  return {.name = name, .what = what, .otherwise = otherwise, .take = TakesAName(variable)};
}

Argument File(const std::string& name, const std::string& what, const std::string& otherwise, std::string& variable) {
  return {.name = name, .what = what, .value = "FILE", .otherwise = otherwise, .take = TakesAName(variable)};
}

Argument Folder(const std::string& name, const std::string& what, const std::string& otherwise, std::string& variable) {
  return {.name = name, .what = what, .value = "DIR", .otherwise = otherwise, .take = TakesAName(variable)};
}

Argument Flag(const std::string& name, const std::string& what, bool& variable) {
  return {.name = name, .what = what, .take = [&variable](const std::string&) { variable = true; }};
}

Argument OneOf(const std::string& name, const std::string& what, const std::vector<std::string>& words,
               std::string& variable) {
  return {.name = name,
          .what = what,
          .value = fmt::format("{}", fmt::join(words, "|")),
          .otherwise = variable,
          .words = words,
          .take = [words, &variable](const std::string& text) {
            if (std::ranges::find(words, text) == words.end()) {
              throw std::invalid_argument(fmt::format("expected one of {}, found {}", fmt::join(words, ", "), text));
            }
            variable = text;
          }};
}

Argument Checked(const std::string& name, const std::string& what, const std::string& value,
                 const std::function<void(const std::string&)>& check, std::string& variable) {
  return {.name = name, .what = what, .value = value, .take = [check, &variable](const std::string& text) {
            check(text);
            variable = text;
          }};
}

Argument Number(const std::string& name, const std::string& what, const std::string& unit, const common::Limits& limits,
                double& variable) {
  return Ranged(name, what, unit, limits.lowest, limits.highest, fmt::format("{:g}", variable), variable);
}

Argument Number(const std::string& name, const std::string& what, const std::string& unit, const common::Limits& limits,
                const std::string& otherwise, std::optional<double>& variable) {
  return Ranged(name, what, unit, limits.lowest, limits.highest, otherwise, variable);
}

Argument Number(const std::string& name, const std::string& what, const std::string& unit, const common::Limits& limits,
                int& variable) {
  return Ranged(name, what, unit, static_cast<int>(limits.lowest), static_cast<int>(limits.highest), InDigits(variable),
                variable);
}

Argument Number(const std::string& name, const std::string& what, const std::string& unit, const common::Limits& limits,
                std::size_t& variable) {
  return Ranged(name, what, unit, static_cast<std::size_t>(limits.lowest), static_cast<std::size_t>(limits.highest),
                InDigits(variable), variable);
}

Argument Number(const std::string& name, const std::string& what, const std::string& unit, const common::Limits& limits,
                const std::string& otherwise, std::optional<std::size_t>& variable) {
  return Ranged(name, what, unit, static_cast<std::size_t>(limits.lowest), static_cast<std::size_t>(limits.highest),
                otherwise, variable);
}

Argument Number(const std::string& name, const std::string& what, std::uint32_t& variable) {
  return Ranged(name, what, "", std::uint32_t{0}, std::numeric_limits<std::uint32_t>::max(), InDigits(variable),
                variable);
}

}  // namespace quen::tool
