#include "workbench/fits/numbers.hpp"

#include <charconv>
#include <cmath>

namespace quen::workbench {

std::string_view Trimmed(std::string_view text) {
  constexpr const char* kBlank = " \t\r";
  const std::size_t first = text.find_first_not_of(kBlank);
  return first == std::string_view::npos ? "" : text.substr(first, text.find_last_not_of(kBlank) - first + 1);
}

std::optional<double> ParseNumber(std::string_view text) {
  text = Trimmed(text);
  if (text.starts_with('+')) text.remove_prefix(1);
  double value = 0.0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  const bool is_number = error == std::errc() && end == text.data() + text.size() && std::isfinite(value);
  return is_number ? std::optional(value) : std::nullopt;
}

std::optional<long> ParseWhole(std::string_view text) {
  const std::optional<double> value = ParseNumber(text);
  if (!value || std::abs(*value) > 1e9 || *value != std::nearbyint(*value)) return std::nullopt;
  return std::lround(*value);
}

}  // namespace quen::workbench
