#include "stream/src/keywords.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <span>
#include <stdexcept>
#include <type_traits>

#include "stream/src/shared_file.hpp"
#include "stream/src/words.hpp"

namespace quen::stream {
namespace {

constexpr char kUnused = 'N';
constexpr std::array<char, 3> kTypes = {'L', 'D', 'S'};  // in the order of KeywordValue

using ValueBytes = decltype(KeywordEntry::value);

void RequireBytes(const std::string& what, std::size_t lowest, std::size_t highest, const std::string& text) {
  if (text.size() >= lowest && text.size() <= highest) return;
  throw std::invalid_argument(what + " must have " + std::to_string(lowest) + " to " + std::to_string(highest) +
                              " bytes, found " + std::to_string(text.size()) + " in '" + text + "'");
}

/// Up to the first zero byte, or all of it.
std::string TextOf(std::span<const char> bytes) { return {bytes.begin(), std::ranges::find(bytes, '\0')}; }

ValueBytes BytesOf(const KeywordValue& value) {
  ValueBytes bytes = {};
  std::visit(
      [&bytes](const auto& v) {
        if constexpr (std::is_same_v<std::decay_t<decltype(v)>, std::string>) {
          std::memcpy(bytes.data(), v.data(), v.size());
        } else {
          std::memcpy(bytes.data(), &v, sizeof(v));
        }
      },
      value);
  return bytes;
}

template <typename Number>
Number NumberIn(const ValueBytes& bytes) {
  Number number;
  std::memcpy(&number, bytes.data(), sizeof(number));
  return number;
}

}  // namespace

void RequireFits(const Keyword& keyword) {
  RequireBytes("the name of a keyword", 1, sizeof(KeywordEntry::name) - 1, keyword.name);
  RequireBytes("the comment of keyword " + keyword.name, 0, sizeof(KeywordEntry::comment) - 1, keyword.comment);
  RequireFits(keyword.name, keyword.value);
}

void RequireFits(const std::string& name, const KeywordValue& value) {
  const auto* const text = std::get_if<std::string>(&value);
  if (text == nullptr || text->size() <= sizeof(KeywordEntry::value)) return;  // without making words of it
  RequireBytes("the text of keyword " + name, 0, sizeof(KeywordEntry::value), *text);
}

void Describe(const Keyword& keyword, KeywordEntry& entry) {
  entry = {};
  std::ranges::copy(keyword.name, entry.name.begin());
  std::ranges::copy(keyword.comment, entry.comment.begin());
  entry.type = kTypes.at(keyword.value.index());
  entry.value = BytesOf(keyword.value);
}

void Write(const KeywordValue& value, KeywordEntry& entry) {
  Store(BytesOf(value), entry.value);
  Shared(entry.writes).fetch_add(1, std::memory_order_relaxed);
}

bool IsInUse(const KeywordEntry& entry) { return entry.type != kUnused; }
std::string NameOf(const KeywordEntry& entry) { return TextOf(entry.name); }
std::string CommentOf(const KeywordEntry& entry) { return TextOf(entry.comment); }

void Read(KeywordEntry& entry, KeywordValue& value) {
  const ValueBytes bytes = Load(entry.value);
  switch (entry.type) {
    case 'L':
      value = NumberIn<std::int64_t>(bytes);
      return;
    case 'D':
      value = NumberIn<double>(bytes);
      return;
    default:
      value = TextOf(std::bit_cast<std::array<char, sizeof(bytes)>>(bytes));
  }
}

}  // namespace quen::stream
