#include "workbench/fits/plain_text.hpp"

#include <gtest/gtest.h>

namespace quen::workbench {
namespace {

std::string Repeated(const std::string& text, std::size_t count) {
  std::string all;
  for (std::size_t k = 0; k < count; ++k) all += text;
  return all;
}

TEST(PlainText, StaysAsItIsInUtf8) {
  for (const char* const text : {"", "a b", "naïve", "→ 7″", "\xF0\x9F\x98\x80", "\xEF\xBF\xBD", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_EQ(Plain(text), text);
  }
}

TEST(PlainText, HasNoControlCharacters) {
  EXPECT_EQ(Plain("\x1B[31mred\x07\n\r\t\x7F"), "?[31mred?????");
  EXPECT_EQ(Plain(std::string_view("a\0b", 3)), "a?b");
  EXPECT_EQ(Plain("\xC2\x9B"
                  "2J\xC2\xA0"),
            "?2J\xC2\xA0");  // the one-character form of ESC [, and the first that is none
}

TEST(PlainText, IsShownInTheOrderThatItHas) {
  for (const char* const mark : {"\xD8\x9C", "\xE2\x80\x8E", "\xE2\x80\x8F", "\xE2\x80\xA8", "\xE2\x80\xAA",
                                 "\xE2\x80\xAE", "\xE2\x81\xA6", "\xE2\x81\xA9"}) {
    EXPECT_EQ(Plain(std::string("a") + mark + "stif.b"), "a?stif.b");
  }
  // Their neighbours are ordinary: a joiner, a dash, a narrow space.
  for (const char* const other : {"\xE2\x80\x8D", "\xE2\x80\x90", "\xE2\x80\xA7", "\xE2\x80\xAF", "\xE2\x81\xA5"}) {
    EXPECT_EQ(Plain(other), other);
  }
}

TEST(PlainText, IsUtf8WhateverItWas) {
  EXPECT_EQ(Plain("caf\xE9"), "caf?");
  EXPECT_EQ(Plain("\xC0\xAF"), "??");            // longer than need be
  EXPECT_EQ(Plain("\xE0\x80\xAF"), "???");       //
  EXPECT_EQ(Plain("\xF0\x80\x80\xAF"), "????");  //
  EXPECT_EQ(Plain("\xED\xA0\x80"), "???");       // half a pair of UTF-16
  EXPECT_EQ(Plain("\xF4\x90\x80\x80"), "????");  // beyond Unicode
  EXPECT_EQ(Plain("\xF8\x88\x80\x80\x80"), "?????");
  EXPECT_EQ(Plain("\xE2\x82"), "??");  // cut short
  EXPECT_EQ(Plain("\xE2\x82z"), "??z");
  EXPECT_EQ(Plain("\xF0\x9F\x98z"), "???z");
}

TEST(PlainText, SentencesAreShortenedInTheirMiddle) {
  const std::string longest(kLongestSentence, 'x');
  EXPECT_EQ(Sentence(longest), longest);
  const std::string sentence = Sentence("begins " + Repeated("x", 100000) + " ends");
  EXPECT_LE(sentence.size(), kLongestSentence);
  EXPECT_GT(sentence.size(), kLongestSentence - 10);
  EXPECT_TRUE(sentence.starts_with("begins x"));
  EXPECT_NE(sentence.find("x…x"), std::string::npos);
  EXPECT_TRUE(sentence.ends_with("x ends"));
}

TEST(PlainText, SentencesAreCutBetweenCharacters) {
  for (const char* const before : {"", "a", "ab", "abc"}) {
    const std::string sentence = Sentence(before + Repeated("\xF0\x9F\x98\x80", 1000));
    EXPECT_LE(sentence.size(), kLongestSentence);
    EXPECT_EQ(Plain(sentence), sentence) << before;
  }
}

}  // namespace
}  // namespace quen::workbench
