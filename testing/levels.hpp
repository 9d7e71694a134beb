#pragma once

#include <gtest/gtest.h>

#include "common/simd/level.hpp"

/// @file
/// Suites that run at every level of vector instructions that this processor has.

namespace quen::testing {

/// The fixture: TEST_P of it, or of one made from it, are skipped where the processor lacks the level.
class AtLevel : public ::testing::TestWithParam<common::simd::Level> {
 protected:
  void SetUp() override {
    if (!IsAvailable(GetParam())) GTEST_SKIP() << "no " << Name(GetParam()) << " here";
  }
};

/// Names a suite's tests by their levels.
inline const auto kNameOfLevel = [](const auto& level) { return Name(level.param); };

}  // namespace quen::testing
