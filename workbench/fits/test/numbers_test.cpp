#include "workbench/fits/numbers.hpp"

#include <gtest/gtest.h>

#include <optional>

namespace {

TEST(Numbers, AreNumbersAndNothingElse) {
  EXPECT_EQ(quen::workbench::ParseNumber("1.5"), 1.5);
  EXPECT_EQ(quen::workbench::ParseNumber(" +2e-3\t"), 2e-3);
  EXPECT_EQ(quen::workbench::ParseNumber("-7"), -7.0);
  for (const char* const text : {"", " ", "1.5x", "1,5", "nan", "inf", "--1", "1 2", "0x10"}) {
    EXPECT_EQ(quen::workbench::ParseNumber(text), std::nullopt) << text;
  }
  EXPECT_EQ(quen::workbench::ParseWhole("12"), 12);
  EXPECT_EQ(quen::workbench::ParseWhole("-1e3"), -1000);
  EXPECT_EQ(quen::workbench::ParseWhole("1.5"), std::nullopt);
  EXPECT_EQ(quen::workbench::ParseWhole("1e10"), std::nullopt);
}

}  // namespace
