#include "workbench/fits/plain_text.hpp"

namespace quen::workbench {
namespace {

/// Bytes of the UTF-8 character that a text begins with; 0 if it begins with none.
std::size_t CharacterLength(std::string_view text) {
  const auto byte = [&](std::size_t k) { return k < text.size() ? static_cast<unsigned char>(text[k]) : 0U; };
  const unsigned first = byte(0);
  if (first < 0x80) return 1;
  if (first < 0xC2 || first > 0xF4) return 0;
  // Others would be longer than need be, halves of pairs of UTF-16, or beyond Unicode.
  const unsigned lowest = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
  const unsigned highest = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
  if (byte(1) < lowest || byte(1) > highest) return 0;
  const std::size_t length = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  for (std::size_t k = 2; k < length; ++k) {
    if (byte(k) < 0x80 || byte(k) > 0xBF) return 0;
  }
  return length;
}

/// The number of a character of two or three bytes; 0 for others.
unsigned CodePoint(std::string_view character) {
  const auto bits = [&](std::size_t k, unsigned mask) { return static_cast<unsigned char>(character[k]) & mask; };
  if (character.size() == 2) return bits(0, 0x1F) << 6U | bits(1, 0x3F);
  if (character.size() == 3) return bits(0, 0x0F) << 12U | bits(1, 0x3F) << 6U | bits(2, 0x3F);
  return 0;
}

/// Whether a character is one of the two ranges of control characters, or DEL, or ends the line, or changes the
/// direction in which those around it are shown.
bool IsControl(std::string_view character) {
  if (character.size() == 1) return static_cast<unsigned char>(character[0]) < 0x20 || character[0] == 0x7F;
  const unsigned code = CodePoint(character);
  const auto is_from_to = [code](unsigned first, unsigned last) { return first <= code && code <= last; };
  return is_from_to(0x80, 0x9F) || code == 0x061C || code == 0x200E || code == 0x200F || is_from_to(0x2028, 0x202E) ||
         is_from_to(0x2066, 0x2069);
}

/// Whether a character begins here, in UTF-8.
bool IsBeginning(const std::string& text, std::size_t at) {
  return (static_cast<unsigned char>(text[at]) & 0xC0U) != 0x80U;
}

}  // namespace

std::string Plain(std::string_view text) {
  std::string plain;
  while (!text.empty()) {
    const std::size_t length = CharacterLength(text);
    const std::string_view character = text.substr(0, length);
    if (length == 0 || IsControl(character)) {
      plain += '?';
    } else {
      plain += character;
    }
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return plain;
}

std::string Sentence(std::string_view text) {
  constexpr std::string_view kLeftOut = "…";
  constexpr std::size_t kHalf = (kLongestSentence - kLeftOut.size()) / 2;
  std::string plain = Plain(text);
  if (plain.size() <= kLongestSentence) return plain;
  std::size_t first = kHalf;
  std::size_t last = plain.size() - kHalf;
  while (!IsBeginning(plain, first)) --first;
  while (!IsBeginning(plain, last)) ++last;
  return plain.replace(first, last - first, kLeftOut);
}

}  // namespace quen::workbench
