#include "workbench/campaign/src/document.hpp"

#include <fmt/format.h>

// The parser is a library of its own, which its package says by these to all that link to it: here one source does.
#define TOML_HEADER_ONLY 0  // NOLINT(cppcoreguidelines-macro-usage)
#define TOML_SHARED_LIB 1   // NOLINT(cppcoreguidelines-macro-usage)
#include <toml++/toml.h>

#include <algorithm>
#include <set>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace quen::workbench {
namespace {

constexpr std::size_t kLongestDocument = 1U << 20U;  // bytes
constexpr std::size_t kLongestToml = 1U << 14U;      // its parser takes half a kilobyte of stack for a dot of a key
constexpr int kDeepest = 8;                          // tables in tables; a campaign has two
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";  // that some editors begin a file with

[[noreturn]] void RefuseDepth(const std::string& name) {
  throw std::runtime_error(name + ": expected fewer lists in lists, found too many");
}

[[noreturn]] void RefuseDocument(const std::string& name, const std::string& place, std::string_view reason) {
  throw std::runtime_error(fmt::format("{}: expected a campaign in TOML or JSON, found something else at {}{}{}", name,
                                       place, reason.empty() ? "" : ": ", reason));
}

std::string PlaceOf(const toml::source_region& source) {
  return fmt::format("line {}, column {}", source.begin.line, source.begin.column);
}

/// @param depth  of tables and lists around it
Document FromToml(const std::string& name, const toml::node& node, int depth);

/// A TOML table knows its members by their names; their order is that of their places.
Document FromTable(const std::string& name, const toml::table& table, int depth) {
  std::vector<std::pair<toml::source_position, std::string>> order;
  for (const auto& [key, value] : table) order.emplace_back(key.source().begin, key.str());
  std::ranges::sort(order, [](const auto& one, const auto& other) { return one.first < other.first; });
  Document object = Document::object();
  for (const auto& [place, key] : order) object[key] = FromToml(name, *table.get(key), depth + 1);
  return object;
}

Document FromToml(const std::string& name, const toml::node& node, int depth) {
  if (depth > kDeepest) RefuseDepth(name);
  if (const auto* const table = node.as_table()) return FromTable(name, *table, depth);
  if (const auto* const text = node.as_string()) return text->get();
  if (const auto* const whole = node.as_integer()) return whole->get();
  if (const auto* const number = node.as_floating_point()) return number->get();
  if (const auto* const flag = node.as_boolean()) return flag->get();
  const auto* const list = node.as_array();
  if (list == nullptr) {
    throw std::runtime_error(
        fmt::format("{}: expected numbers and texts, found a date or a time at {}", name, PlaceOf(node.source())));
  }
  Document array = Document::array();
  for (const toml::node& element : *list) array.push_back(FromToml(name, element, depth + 1));
  return array;
}

Document ParseToml(const std::string& name, const std::string& text) {
  if (text.size() > kLongestToml) {
    throw std::runtime_error(
        fmt::format("{}: expected TOML of {} bytes at most, found {}; a longer campaign may be JSON", name,
                    kLongestToml, text.size()));
  }
  try {
    return FromTable(name, toml::parse(text), 0);
  } catch (const toml::parse_error& error) {
    RefuseDocument(name, PlaceOf(error.source()), error.description());
  }
}

/// Line and column of a byte, counted from 1.
std::string PlaceOfByte(std::string_view text, std::size_t byte) {
  const std::string_view before = text.substr(0, byte == 0 ? 0 : byte - 1);
  const std::size_t line_end = before.rfind('\n');
  const std::size_t line_start = line_end == std::string_view::npos ? 0 : line_end + 1;
  return fmt::format("line {}, column {}", 1 + std::ranges::count(before, '\n'), 1 + before.size() - line_start);
}

Document ParseJson(const std::string& name, const std::string& text) {
  std::vector<std::set<std::string>> keys;  // of the objects that the parser is in
  const auto look = [&](int depth, Document::parse_event_t event, const Document& value) {
    using Event = Document::parse_event_t;
    if (depth > kDeepest) RefuseDepth(name);
    if (event == Event::object_start) keys.emplace_back();
    if (event == Event::object_end) keys.pop_back();
    if (event == Event::key && !keys.back().insert(value.get<std::string>()).second) {
      throw std::runtime_error(fmt::format("{}: expected {} once, found it twice", name, value.get<std::string>()));
    }
    return true;
  };
  try {
    return Document::parse(text, look, true, true);
  } catch (const Document::parse_error& error) {
    RefuseDocument(name, PlaceOfByte(text, error.byte), "");
  } catch (const Document::exception&) {
    throw std::runtime_error(name + ": expected numbers of magnitude 1.8e308 at most, found a larger one");
  }
}

}  // namespace

Document ParseDocument(const std::string& name, const std::string& text) {
  if (text.size() > kLongestDocument) {
    throw std::runtime_error(
        fmt::format("{}: expected a campaign of {} bytes at most, found {}", name, kLongestDocument, text.size()));
  }
  const std::size_t start = text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
  const std::size_t first = text.find_first_not_of(" \t\r\n", start);
  const bool is_json = first != std::string::npos && (text[first] == '{' || text.substr(first, 2) == "//");
  return is_json ? ParseJson(name, text) : ParseToml(name, text);
}

}  // namespace quen::workbench
