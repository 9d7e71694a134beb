#include "workbench/live/frame_contents.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace quen::workbench {
namespace {

constexpr std::size_t kPitch = 24;
constexpr std::size_t kSize = 10 * kPitch;
constexpr std::size_t kSound = 40;  // frames, before one that is not

using Frame = std::vector<std::int16_t>;

/// Spots that wander together and apart, uniform noise, and a hot pixel.
class Scene {
 public:
  Frame Next(double noise = 10.0, double light = 4000.0, std::size_t without = kSize) {
    ++number_;
    Frame frame(kSize * kSize);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    const double phase = 0.05 * static_cast<double>(number_);
    for (std::size_t row = 0; row < kSize; ++row) {
      for (std::size_t column = 0; column < kSize; ++column) {
        const std::size_t spot = row / kPitch * (kSize / kPitch) + column / kPitch;
        const double wander = 2.0 * std::sin(phase) + std::sin(2.0 * phase + static_cast<double>(spot));
        const double x = static_cast<double>(column % kPitch) - 11.5 - wander;
        const double y = static_cast<double>(row % kPitch) - 11.5 + wander;
        const double spot_light = spot == without ? 0.0 : light * std::exp(-(x * x + y * y) / 8.0);
        frame[row * kSize + column] = static_cast<std::int16_t>(std::lround(spot_light + noise * unit(random_)));
      }
    }
    frame[100 * kSize + 100] = 5000;
    return frame;
  }

 private:
  std::mt19937 random_{3};
  std::size_t number_ = 0;
};

/// What is found, in words.
std::string Found(const FrameContents::Oddities& oddities) {
  std::string found;
  for (const auto& [oddity, key, text] : kOddities) {
    if (oddities.at(static_cast<std::size_t>(oddity))) found.append(key).append(" ");
  }
  return found;
}

class FrameContentsOf : public ::testing::Test {
 protected:
  void SetUp() override {
    for (std::size_t k = 0; k < kSound; ++k) {
      last_ = scene_.Next();
      ASSERT_EQ(Found(contents_.Look(last_)), "") << k;
    }
  }

  std::string Look(const Frame& frame) { return Found(contents_.Look(frame)); }
  std::string LookAtNext() { return Look(scene_.Next()); }

  Scene scene_;
  FrameContents contents_{kSize, kSize};
  Frame last_;
};

TEST_F(FrameContentsOf, SoundFramesAreNotOdd) {
  for (int k = 0; k < 300; ++k) ASSERT_EQ(LookAtNext(), "") << k;
}

TEST_F(FrameContentsOf, FramesWithoutLightAreDark) {
  for (int k = 0; k < 3; ++k) EXPECT_EQ(Look(scene_.Next(10.0, 0.0)), "dark ");
  EXPECT_EQ(LookAtNext(), "");
}

TEST_F(FrameContentsOf, FramesAtTheirLargestValueAreSaturated) {
  EXPECT_EQ(Look(Frame(kSize * kSize, 32767)), "saturated ");
  EXPECT_EQ(Look(Frame(kSize * kSize, 0)), "dark ");
  EXPECT_EQ(LookAtNext(), "");
}

TEST_F(FrameContentsOf, FramesMovedByPixelsAreDisplaced) {
  for (const std::ptrdiff_t places : {1, -1, 5, 7}) {
    for (const std::ptrdiff_t step : {std::ptrdiff_t{1}, static_cast<std::ptrdiff_t>(kSize)}) {
      Frame frame = scene_.Next();
      const auto size = static_cast<std::ptrdiff_t>(frame.size());
      std::rotate(frame.begin(), frame.begin() + (size - places * step) % size, frame.end());
      EXPECT_EQ(Look(frame), "displaced ") << places << " by " << step;
    }
  }
  EXPECT_EQ(LookAtNext(), "");
}

TEST_F(FrameContentsOf, PartsThatStayAsTheyWereAreStuck) {
  const std::size_t side = 2 * FrameContents::kTile - 1;  // so that one tile is within
  Frame frame = scene_.Next();
  for (std::size_t row = 41; row < 41 + side; ++row) {
    std::copy_n(&last_[row * kSize + 65], side, &frame[row * kSize + 65]);
  }
  EXPECT_EQ(Look(frame), "stuck ");
  EXPECT_EQ(LookAtNext(), "");
}

TEST_F(FrameContentsOf, SpotsThatAreMissingAreLost) {
  for (const std::size_t spot : {0U, 9U, 55U, 99U}) {
    for (int k = 0; k < 20; ++k) EXPECT_EQ(Look(scene_.Next(10.0, 4000.0, spot)), "spots_lost ") << spot;
    EXPECT_EQ(LookAtNext(), "") << spot;
  }
}

TEST_F(FrameContentsOf, ASpotThatStaysAwayBecomesUsual) {
  int told = 0;
  for (int k = 0; k < 400; ++k) told += Look(scene_.Next(10.0, 4000.0, 55)).empty() ? 0 : 1;
  EXPECT_GT(told, 20);
  EXPECT_LT(told, 200);
}

TEST_F(FrameContentsOf, PixelsThatStickOutAreOdd) {
  for (const int value : {1000, -1000, 32767, -32768}) {
    for (const std::size_t place : {5 * kSize + 3, 120 * kSize + 121}) {
      Frame frame = scene_.Next();
      frame[place] = static_cast<std::int16_t>(value);
      EXPECT_EQ(Look(frame), "odd_pixels ") << value << " at " << place;
    }
  }
  EXPECT_EQ(LookAtNext(), "");
}

TEST_F(FrameContentsOf, LargerNoiseIsNoisy) {
  for (const double noise : {20.0, 100.0}) EXPECT_EQ(Look(scene_.Next(noise)), "noisy ") << noise;
  EXPECT_EQ(LookAtNext(), "");
}

TEST(FrameContents, AnOddFrameAmongTheFirstDoesNoHarm) {
  Scene scene;
  FrameContents contents(kSize, kSize);
  for (std::size_t k = 0; k < FrameContents::kLearned; ++k) {
    Frame frame = k == 7 ? scene.Next(60.0, 0.0) : scene.Next();
    if (k == 3) frame[9999] = 30000;
    EXPECT_EQ(Found(contents.Look(frame)), "") << "nothing is told while it learns";
  }
  for (int k = 0; k < 20; ++k) EXPECT_EQ(Found(contents.Look(scene.Next())), "") << k;
  EXPECT_EQ(Found(contents.Look(scene.Next(30.0))), "noisy ");
}

TEST(FrameContents, TilesThatNeverChangeAreNotStuck) {
  Scene scene;
  FrameContents contents(kSize, kSize);
  for (int k = 0; k < 40; ++k) EXPECT_EQ(Found(contents.Look(scene.Next(0.0))), "") << k;
}

TEST(FrameContents, NeedsSomeTiles) {
  EXPECT_TRUE(FrameContents::Fits(48, 48));
  EXPECT_FALSE(FrameContents::Fits(47, 48));
  EXPECT_FALSE(FrameContents::Fits(48, 47));
}

}  // namespace
}  // namespace quen::workbench
