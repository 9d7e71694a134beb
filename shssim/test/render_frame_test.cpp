#include "shssim/src/render_frame.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <type_traits>

#include "shssim/src/spot_kernel.hpp"
#include "shssim/test/simulator_under_test.hpp"
#include "testing/levels.hpp"
#include "testing/values.hpp"

// Every level against the formula written down a second time: the same bits in both frames, the same generator after.

namespace quen::shssim {
namespace {

using quen::common::simd::IsAvailable;
using quen::common::simd::Level;
using quen::common::simd::Name;
using quen::image_processing::Roi;
using quen::testing::kInfinity;
using quen::testing::kNan;
using quen::testing::kSentinel;
using quen::testing::PlainFrames;
using quen::testing::RandomNumbers;
using quen::testing::SameValues;

constexpr std::uint16_t kPixelSentinel = 54321;

/// The sensor's regular grid.
std::vector<Roi> Grid() {
  std::vector<Roi> rois;
  for (unsigned i = 0; i < 1089; ++i) {
    const auto x = static_cast<std::uint16_t>(24 + 24 * (i % 33));
    const auto y = static_cast<std::uint16_t>(12 + 24 * (i / 33));
    rois.emplace_back(x, x + 24, y, y + 24, 840, 816, x + 11.5, y + 11.5);
  }
  return rois;
}

class RenderFrameTest : public testing::AtLevel {
 protected:
  /// Renders both ways, from the same generator, over whatever equal frames were there before.
  RenderReport ExpectTheFormula(const std::vector<Roi>& rois, const std::vector<double>& dx,
                                const std::vector<double>& dy, double noise, std::uint32_t seed,
                                unsigned long long skip = 0) {
    std::mt19937 generator(seed);
    generator.discard(skip);
    std::mt19937 expected_generator = generator;
    const RenderReport report = RenderFrame(GetParam(), rois, dx, dy, noise, generator, {values_, pixels_});
    expected_.Render(rois, dx, dy, noise, expected_generator);
    EXPECT_TRUE(SameValues(values_, expected_.values)) << "noise " << noise << ", seed " << seed;
    EXPECT_TRUE(pixels_ == expected_.pixels) << "noise " << noise << ", seed " << seed;
    EXPECT_TRUE(generator == expected_generator) << "noise " << noise << ", seed " << seed;
    return report;
  }

  /// The same with every region undisplaced.
  RenderReport ExpectTheFormula(const std::vector<Roi>& rois, double noise, std::uint32_t seed) {
    const std::vector<double> still(rois.size(), 0.0);
    return ExpectTheFormula(rois, still, still, noise, seed);
  }

 private:
  std::vector<double> values_ = std::vector<double>(685440, kSentinel);
  std::vector<std::uint16_t> pixels_ = std::vector<std::uint16_t>(685440, kPixelSentinel);
  PlainFrames expected_ = {values_, pixels_};
};

TEST_P(RenderFrameTest, LevelAskedForIsTheOneThatRan) {
  const RenderReport report = ExpectTheFormula(Grid(), 10.0, 1);
  EXPECT_EQ(report.level, GetParam());
  EXPECT_EQ(report.near_pixels, GetParam() == Level::kPlain ? 0U : 627264U);
}

TEST_P(RenderFrameTest, RegularGridWithRandomDisplacements) {
  // Some ten million pixels, among them displacements at which spots leave their regions.
  for (std::uint32_t seed = 1; seed <= 4; ++seed) {
    for (const double span : {2.0, 0.01, 12.0, 30.0}) {
      ExpectTheFormula(Grid(), RandomNumbers(1089, span, seed), RandomNumbers(1089, span, seed + 100), 10.0, seed);
    }
  }
}

TEST_P(RenderFrameTest, AnyNoise) {
  const auto dx = RandomNumbers(1089, 2.0, 5);
  const auto dy = RandomNumbers(1089, 2.0, 6);
  for (const double noise :
       {0.0, -0.0, 1e-300, 0.25, 1e6, 0x1p30, 0x1.8p30, 1e12, std::numeric_limits<double>::max(), kInfinity}) {
    ExpectTheFormula(Grid(), dx, dy, noise, 7);
  }
}

TEST_P(RenderFrameTest, GeneratorPositionsEvenAndOdd) {
  std::vector<Roi> rois(40, Roi(100, 124, 100, 123, 840, 816, 111.3, 112.7));
  rois[3] = Roi(30, 31, 40, 41, 840, 816, 30, 40);
  const auto dx = RandomNumbers(40, 2.0, 5);
  const auto dy = RandomNumbers(40, 2.0, 6);
  // Each position itself is tried on the stream; here those around the places where the state is made anew.
  for (const unsigned long long around : {0ULL, 312ULL, 624ULL, 1248ULL}) {
    for (unsigned long long skip = around; skip < around + 9; ++skip) {
      ExpectTheFormula(rois, dx, dy, skip % 2 == 0 ? 10.0 : 0.0, 8, skip);
    }
  }
}

TEST_P(RenderFrameTest, WidthsAndHeightsOfEverySize) {
  std::vector<Roi> rois;
  for (int size = 0; size <= 70; ++size) {
    const auto width = static_cast<std::uint16_t>(size);
    const auto height = static_cast<std::uint16_t>((size * 7) % 71);
    const auto x = static_cast<std::uint16_t>((size * 37) % 760);
    const auto y = static_cast<std::uint16_t>((size * 53) % 740);
    rois.emplace_back(x, x + width, y, y + height, 840, 816, x + width / 2.0, y + height / 3.0);
  }
  rois.emplace_back(700, 709, 800, 800, 840, 816, 704.0, 800.0);  // no rows
  rois.emplace_back(700, 700, 800, 809, 840, 816, 700.0, 804.0);  // no columns
  for (const double noise : {10.0, 0.0}) {
    const RenderReport report = ExpectTheFormula(rois, noise, 9);
    EXPECT_EQ(report.near_pixels > 30000, GetParam() != Level::kPlain);
  }
}

TEST_P(RenderFrameTest, OverlappingEdgeTouchingAndWholeFrameRegions) {
  const std::vector<Roi> rois = {
      Roi(0, 24, 0, 24, 840, 816, 0.0, 0.0),           Roi(5, 40, 7, 30, 840, 816, 20.1, 15.2),
      Roi(816, 840, 792, 816, 840, 816, 840.0, 816.0), Roi(0, 840, 0, 816, 840, 816, 400.4, 300.3),
      Roi(390, 414, 290, 314, 840, 816, 401.9, 301.1), Roi(839, 840, 815, 816, 840, 816, 839.0, 815.0),
      Roi(100, 108, 200, 264, 840, 816, 104.0, 232.0)};
  ExpectTheFormula(rois, 10.0, 10);
  ExpectTheFormula(rois, 0.0, 10);
}

TEST_P(RenderFrameTest, CentresFarAwayInfiniteOrNan) {
  std::vector<double> dx = RandomNumbers(1089, 2.0, 11);
  std::vector<double> dy = RandomNumbers(1089, 2.0, 12);
  const std::vector<double> odd = {36.4, 36.5, 36.6,  -36.5, 47.9,      60.0,       100.0, 500.0,
                                   1e5,  1e9,  1e160, 1e200, kInfinity, -kInfinity, kNan};
  for (std::size_t k = 0; k < odd.size(); ++k) {
    dx[k] = odd[k];
    dy[100 + k] = odd[k];
    dx[200 + k] = dy[200 + k] = -odd[k];
  }
  std::vector<Roi> rois = Grid();
  rois[300].x_ref = kNan;
  rois[301].y_ref = -kInfinity;
  ExpectTheFormula(rois, dx, dy, 10.0, 13);
  ExpectTheFormula(rois, dx, dy, 0.0, 13);
}

TEST_P(RenderFrameTest, CentresOnPixelsAndBetweenThem) {
  std::vector<Roi> rois = Grid();
  for (std::size_t i = 0; i < rois.size(); ++i) {
    rois[i].x_ref = std::floor(rois[i].x_ref) + static_cast<double>(i % 8) / 8.0;
    rois[i].y_ref = std::floor(rois[i].y_ref) + static_cast<double>(i % 3) / 2.0;
  }
  ExpectTheFormula(rois, 10.0, 14);
  // Displacements below the last place of the reference, and tiny squares.
  ExpectTheFormula(rois, RandomNumbers(1089, 1e-14, 15), RandomNumbers(1089, 1e-160, 16), 0.0, 14);
}

TEST_P(RenderFrameTest, RegionsOfOnePixelUpToTheLargestUnderAnyNoise) {
  std::vector<Roi> rois;
  std::size_t near_pixels = 0;
  for (const auto& [width, height] :
       {std::pair(1, 1), std::pair(64, 64), std::pair(63, 64), std::pair(64, 63), std::pair(1, 64), std::pair(64, 1),
        std::pair(33, 31), std::pair(7, 13), std::pair(65, 64), std::pair(64, 65)}) {
    const auto x = static_cast<std::uint16_t>(70 * rois.size() + 3);
    const auto y = static_cast<std::uint16_t>(70 * rois.size() + 5);
    rois.emplace_back(x, x + width, y, y + height, 840, 816, x + width / 2.3, y + height / 1.9);
    if (width <= 64 && height <= 64) near_pixels += static_cast<std::size_t>(width * height);
  }
  // From noise that changes no pixel to noise in which the Gaussian's last bits are lost everywhere.
  for (const double noise : {0.0, 1e-300, 1e-13, 1e-6, 10.0, 1e4, 0x1p30}) {
    for (std::uint32_t seed = 0; seed < 4; ++seed) {
      const RenderReport report = ExpectTheFormula(rois, RandomNumbers(rois.size(), 3.0, seed),
                                                   RandomNumbers(rois.size(), 3.0, seed + 50), noise, seed);
      EXPECT_EQ(report.near_pixels, GetParam() == Level::kPlain ? 0 : near_pixels);
    }
  }
}

TEST_P(RenderFrameTest, SpotsAsFarAwayAsTheKernelReaches) {
  // 24 pixels from 400 on: centres at 48 pixels from the first or from the last of them, along either axis or both.
  const std::vector<Roi> rois(16, Roi(400, 424, 400, 423, 840, 816, 400.0, 400.0));
  const std::vector<double> least = {-48.0 + 23.0, -48.0 + 22.0};  // of columns, of rows
  for (const double inward : {0.0, 1e-13, 0.001, 0.4, 1.0 / 128, 0.5}) {
    std::vector<double> dx;
    std::vector<double> dy;
    for (const double x : {least[0] + inward, 48.0 - inward, 11.5, -3.0}) {
      for (const double y : {least[1] + inward, 48.0 - inward, 11.5, 40.0}) {
        dx.push_back(x);
        dy.push_back(y);
      }
    }
    for (const double noise : {0.0, 10.0}) {
      const RenderReport report = ExpectTheFormula(rois, dx, dy, noise, 17);
      EXPECT_EQ(report.near_pixels, GetParam() == Level::kPlain ? 0U : 16U * 24U * 23U) << inward;
    }
    for (std::size_t i = 0; i < rois.size(); ++i) {  // each alone: none is drawn over by a later one
      ExpectTheFormula({rois[i]}, {dx[i]}, {dy[i]}, 0.0, 18);
    }
  }
}

TEST_P(RenderFrameTest, CentresOnAndBetweenTheStepsOfTheKernelsTable) {
  std::vector<Roi> rois = Grid();
  for (const double beside : {0.0, 1e-12, -1e-12}) {
    for (std::size_t i = 0; i < rois.size(); ++i) {
      rois[i].x_ref = rois[i].x_low + 11.0 + static_cast<double>(i % 256) / 128.0 + beside;
      rois[i].y_ref = rois[i].y_low + 11.0 + static_cast<double>(i * 7 % 256) / 128.0 - beside;
    }
    ExpectTheFormula(rois, 0.0, 19);
    ExpectTheFormula(rois, 10.0, 19);
  }
}

TEST_P(RenderFrameTest, PixelsOfWhichStdExpDoesNotGiveTheNearestDouble) {
  // Regions of one pixel, and of two at the same distance from the centre: nothing but std::exp gives their values.
  if (std::exp(1.0L) == static_cast<long double>(std::exp(1.0))) GTEST_SKIP() << "no wide long double here";
  std::vector<Roi> rois;
  std::mt19937 generator(20);
  std::uniform_real_distribution<double> displacement(-9.0, 9.0);
  while (rois.size() < 300) {
    const double x = 400.0 + displacement(generator);
    const double squares = (400.0 - x) * (400.0 - x) + 0.25;  // half a pixel off along the other axis
    if (std::exp(-squares / 8.0) == static_cast<double>(std::exp(-static_cast<long double>(squares) / 8.0L))) continue;
    const auto i = static_cast<std::uint16_t>(rois.size());
    const auto low = static_cast<std::uint16_t>(400 + (i % 2));
    if (i % 3 == 0) rois.emplace_back(400, 401, low, low + 1, 840, 816, x, 400.5);
    if (i % 3 == 1) rois.emplace_back(400, 401, 400, 402, 840, 816, x, 400.5);
    if (i % 3 == 2) rois.emplace_back(400, 402, 400, 401, 840, 816, 400.5, x);
  }
  for (std::size_t i = 0; i < rois.size(); ++i) ExpectTheFormula({rois[i]}, i % 2 == 0 ? 0.0 : 1e-300, 21);
}

INSTANTIATE_TEST_SUITE_P(Levels, RenderFrameTest, ::testing::ValuesIn(common::simd::kLevels), testing::kNameOfLevel);

TEST(Noise, LeavesTheGeneratorWhereDrawingPixelByPixelDoes) {
  static_assert(!std::is_copy_constructible_v<Noise> && !std::is_move_constructible_v<Noise>);
  for (const double half_width : {10.0, 0.0}) {
    std::mt19937 generator(21);
    std::mt19937 expected = generator;
    {
      Noise noise(common::simd::Best(), generator, half_width);
      noise.Take(Noise::kMaxTake);
      noise.Take(700 - Noise::kMaxTake);
    }
    for (int pixel = 0; pixel < 700; ++pixel) {
      std::uniform_real_distribution<double>(-half_width, half_width)(expected);
    }
    EXPECT_TRUE(generator == expected) << half_width;
  }
}

TEST(StdExp, ErrsByLessThanTheKernelReliesOn) {
  // Against the 64-bit exponential of long double, whose own error is below 2⁻¹⁰ units of a double's last place. Where
  // a processor's long double is no wider than double (an emulator's) there is nothing to compare with.
  if (std::exp(1.0L) == static_cast<long double>(std::exp(1.0))) GTEST_SKIP() << "no wide long double here";
  constexpr double kReserve = 1.0 / 512 + 1.0 / 1024;  // the kernel's own error, and the reference's
  std::mt19937_64 generator(17);
  std::uniform_real_distribution<double> argument(-1200.0, 0.0);
  double worst = 0.0;
  for (int sample = 0; sample < 4000000; ++sample) {
    const double a = argument(generator);
    const double z = -(a * a) / 2500.0;  // −576 … 0, denser toward 0
    const long double exact = std::exp(static_cast<long double>(z));
    const double value = std::exp(z);
    const auto error = static_cast<double>(exact - static_cast<long double>(value));
    const double unit =
        std::abs(std::nextafter(value, error > 0.0 ? kInfinity : 0.0) - value);  // the gap in which E lies
    worst = std::max(worst, std::abs(error) / unit);
  }
  RecordProperty("worst", std::to_string(worst));
  EXPECT_LT(worst, kExpErrorBound - kReserve);
  EXPECT_GT(worst, 0.5);  // samples near the midpoints between doubles were among them
}

TEST(Levels, BestIsTheHighestThatIsAvailable) {
  using common::simd::Best;
  EXPECT_TRUE(IsAvailable(Level::kPlain));
  EXPECT_TRUE(IsAvailable(Best()));
  for (const Level level : common::simd::kLevels) {
    EXPECT_TRUE(!IsAvailable(level) || level <= Best()) << Name(level);
  }
  RecordProperty("best", Name(Best()));
}

}  // namespace
}  // namespace quen::shssim
