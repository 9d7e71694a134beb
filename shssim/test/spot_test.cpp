#include "shssim/spot.hpp"

#include <gtest/gtest.h>

#include <cmath>

namespace quen::shssim {
namespace {

TEST(Spot, HasThePeakAndTheWidthThatHostsKnow) {
  static_assert(kSpotPeak == 4096.0 && kSpotSigma == 2.0);
  EXPECT_EQ(kSpotExponent, -0.125);
  EXPECT_EQ(kSpotFwhm, 4.0 * std::sqrt(2.0 * std::log(2.0)));
}

TEST(Spot, FallsToHalfItsMaximumOverHalfItsWidth) {
  constexpr double kRounding = 1e-15;
  EXPECT_NEAR(std::exp(kSpotExponent * kSpotFwhm * kSpotFwhm / 4.0), 0.5, kRounding);
}

TEST(Spot, HasTheLightThatItsPixelsAddUpTo) {
  constexpr double kRounding = 1e-14;  // of 10⁴ additions, most of them of almost nothing
  for (const double centre : {0.0, 0.3, 0.5}) {
    double light = 0.0;
    for (int y = -50; y <= 50; ++y) {
      for (int x = -50; x <= 50; ++x) {
        light += kSpotPeak * std::exp(kSpotExponent * ((x - centre) * (x - centre) + (y - centre) * (y - centre)));
      }
    }
    EXPECT_NEAR(light, kSpotFlux, kRounding * kSpotFlux) << centre;
  }
}

}  // namespace
}  // namespace quen::shssim
