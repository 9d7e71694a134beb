#include "workbench/fits/numbers.hpp"

#include <gtest/gtest.h>

#include <optional>

namespace quen::workbench {
namespace {

TEST(Numbers, AreNumbersAndNothingElse) {
  EXPECT_EQ(ParseNumber("1.5"), 1.5);
  EXPECT_EQ(ParseNumber(" +2e-3\t"), 2e-3);
  EXPECT_EQ(ParseNumber("-7"), -7.0);
  for (const char* const text : {"", " ", "1.5x", "1,5", "nan", "inf", "--1", "1 2", "0x10"}) {
    EXPECT_EQ(ParseNumber(text), std::nullopt) << text;
  }
  EXPECT_EQ(ParseWhole("12"), 12);
  EXPECT_EQ(ParseWhole("-1e3"), -1000);
  EXPECT_EQ(ParseWhole("1.5"), std::nullopt);
  EXPECT_EQ(ParseWhole("1e10"), std::nullopt);
}

}  // namespace
}  // namespace quen::workbench
