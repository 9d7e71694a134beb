#pragma once

#include <gtest/gtest.h>

#include <exception>
#include <string>
#include <typeinfo>

/// @file
/// Expectations on exceptions by exact type: a derived or a base class is a failure.

namespace quen::testing {

/// Runs `action` and returns the text of the exception that it throws, which must be exactly an E.
template <typename E, typename F>
std::string TextOfThrown(F&& action) {
  try {
    action();
  } catch (const std::exception& error) {
    EXPECT_EQ(typeid(error), typeid(E)) << "thrown with the text: " << error.what();
    return error.what();
  }
  ADD_FAILURE() << "nothing was thrown";
  return {};
}

template <typename E, typename F>
void ExpectThrows(const std::string& text, F&& action) {
  EXPECT_EQ(TextOfThrown<E>(std::forward<F>(action)), text);
}

/// For texts that end with CFITSIO's own words: `prefix`, then at least one more character.
template <typename E, typename F>
void ExpectThrowsWithDetails(const std::string& prefix, F&& action) {
  const std::string text = TextOfThrown<E>(std::forward<F>(action));
  EXPECT_EQ(text.substr(0, prefix.size()), prefix);
  EXPECT_GT(text.size(), prefix.size()) << "no details";
}

}  // namespace quen::testing
