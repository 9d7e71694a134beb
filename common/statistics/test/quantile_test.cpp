#include "common/statistics/quantile.hpp"

#include <gtest/gtest.h>

namespace quen::common {
namespace {

using Values = std::vector<double>;

double LowerMedianOf(Values values) { return LowerMedian(values); }
double QuantileOf(Values values, double part) { return Quantile(values, part); }

TEST(Quantile, IsOneOfTheValues) {
  const Values values = {5.0, 1.0, 4.0, 2.0, 3.0};
  EXPECT_EQ(QuantileOf(values, 0.0), 1.0);
  EXPECT_EQ(QuantileOf(values, 0.25), 2.0);
  EXPECT_EQ(QuantileOf(values, 0.49), 2.0);  // between two, the lower one
  EXPECT_EQ(QuantileOf(values, 1.0), 5.0);
  EXPECT_EQ(QuantileOf({}, 0.5), 0.0);
}

TEST(Quantile, MediansOfAnEvenNumberAreTheTwoInTheMiddle) {
  EXPECT_EQ(LowerMedianOf({4.0, 1.0, 3.0, 2.0}), 2.0);
  EXPECT_EQ(UpperMedian({4.0, 1.0, 3.0, 2.0}), 3.0);
  EXPECT_EQ(LowerMedianOf({3.0, 1.0, 2.0}), 2.0);
  EXPECT_EQ(UpperMedian({3.0, 1.0, 2.0}), 2.0);
  EXPECT_EQ(LowerMedianOf({7.0}), 7.0);
  EXPECT_EQ(UpperMedian({7.0}), 7.0);
}

}  // namespace
}  // namespace quen::common
