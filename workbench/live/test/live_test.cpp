#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "stream/test/streams.hpp"
#include "testing/exceptions.hpp"
#include "workbench/live/durations.hpp"
#include "workbench/live/follower.hpp"
#include "workbench/live/frame_statistics.hpp"
#include "workbench/live/pixels.hpp"
#include "workbench/live/recording.hpp"

namespace quen::workbench {
namespace {

using stream::PixelType;
using stream::Writer;
using testing::ExpectThrows;
using testing::kAnyTime;
using testing::PublishEqual;
using testing::SmallStream;
using testing::StreamFolder;

// --- Durations

TEST(Durations, QuantilesAreWithinOnePercentAndTheWorstIsExact) {
  Durations durations;
  EXPECT_EQ(durations.Quantile(0.5), 0.0);
  for (int k = 1; k <= 1000; ++k) durations.Add(1e-6 * k);
  EXPECT_NEAR(durations.Quantile(0.5), 500e-6, 5e-6);
  EXPECT_NEAR(durations.Quantile(0.99), 990e-6, 9.9e-6);
  EXPECT_EQ(durations.Quantile(1.0), 1e-3);
  EXPECT_EQ(durations.Worst(), 1e-3);
  EXPECT_EQ(durations.Least(), 1e-6);
}

TEST(Durations, TakeAnyNumber) {
  Durations durations;
  for (const double seconds : {-37.0, 0.0, 1e300, std::numeric_limits<double>::infinity()}) durations.Add(seconds);
  EXPECT_EQ(durations.Count(), 4);
  EXPECT_EQ(durations.Least(), -37.0);
  EXPECT_TRUE(std::isinf(durations.Worst()));
  EXPECT_LE(durations.Quantile(0.0), 1e-7);
}

TEST(Durations, AreCountedInBars) {
  Durations durations;
  EXPECT_TRUE(durations.Histogram().empty());
  for (int k = 0; k < 98; ++k) durations.Add(300e-6);
  durations.Add(7e-3);
  durations.Add(1000.0);
  const auto bars = durations.Histogram();
  ASSERT_EQ(bars.size(), 18U);
  EXPECT_DOUBLE_EQ(bars.front().from, 200e-6);
  EXPECT_DOUBLE_EQ(bars.front().to, 500e-6);
  EXPECT_EQ(bars.front().count, 98U);
  EXPECT_DOUBLE_EQ(bars[4].from, 5e-3);
  EXPECT_EQ(bars[4].count, 1U);
  EXPECT_TRUE(std::isinf(bars.back().to));
  EXPECT_EQ(bars.back().count, 1U);
}

TEST(Durations, BelowAMicrosecondAreInTheFirstBar) {
  Durations durations;
  for (const double seconds : {0.0, 5e-9}) durations.Add(seconds);
  ASSERT_EQ(durations.Histogram().size(), 1U);
  EXPECT_EQ(durations.Histogram().front().count, 2U);
}

// --- Pixels

template <typename Pixel>
double FirstValue(PixelType type, Pixel pixel) {
  std::array<std::byte, sizeof(Pixel)> bytes = {};
  std::memcpy(bytes.data(), &pixel, sizeof(Pixel));
  return ValuesOf(type, bytes).at(0);
}

TEST(PixelsOfStreams, AreNumbers) {
  EXPECT_EQ(FirstValue(PixelType::kUint8, std::uint8_t{200}), 200.0);
  EXPECT_EQ(FirstValue(PixelType::kInt8, std::int8_t{-7}), -7.0);
  EXPECT_EQ(FirstValue(PixelType::kUint16, std::uint16_t{65535}), 65535.0);
  EXPECT_EQ(FirstValue(PixelType::kInt16, std::int16_t{-32768}), -32768.0);
  EXPECT_EQ(FirstValue(PixelType::kUint32, 4294967295U), 4294967295.0);
  EXPECT_EQ(FirstValue(PixelType::kInt32, -5), -5.0);
  EXPECT_EQ(FirstValue(PixelType::kUint64, std::uint64_t{1} << 63U), std::ldexp(1.0, 63));
  EXPECT_EQ(FirstValue(PixelType::kInt64, std::int64_t{-9}), -9.0);
  EXPECT_EQ(FirstValue(PixelType::kFloat, 0.5F), 0.5);
  EXPECT_EQ(FirstValue(PixelType::kDouble, 0.1), 0.1);
  EXPECT_EQ(FirstValue(PixelType::kComplexFloat, std::array{3.0F, -4.0F}), 5.0);
  EXPECT_EQ(FirstValue(PixelType::kComplexDouble, std::array{-3.0, 4.0}), 5.0);
}

TEST(PixelsOfStreams, MayBeHalfAsLong) {
  const auto value = [](std::uint16_t bits) { return FirstValue(PixelType::kHalf, bits); };
  EXPECT_EQ(value(0x3C00), 1.0);
  EXPECT_EQ(value(0xC500), -5.0);
  EXPECT_EQ(value(0x7BFF), 65504.0);
  EXPECT_EQ(value(0x0001), std::ldexp(1.0, -24));
  EXPECT_EQ(value(0x8000), 0.0);
  EXPECT_EQ(value(0x7C00), std::numeric_limits<double>::infinity());
  EXPECT_TRUE(std::isnan(value(0x7E00)));
}

TEST(PixelsOfStreams, AreNamed) {
  EXPECT_EQ(InWords({840, 816}, PixelType::kUint16), "840 x 816, uint16");
  EXPECT_EQ(InWords({52}, PixelType::kDouble), "52, float64");
}

// --- Following

TEST(Follower, TakesTheFrameThatIsThereAndThoseThatCome) {
  const StreamFolder folder;
  Writer writer(SmallStream());
  PublishEqual(writer, 3);
  Follower stream("test");
  EXPECT_EQ(stream.CountAtFirst(), 1);
  EXPECT_EQ(stream.Look(), StreamEvent::kFrame);
  EXPECT_EQ(stream.Info().count, 1);
  EXPECT_EQ(stream.Look(), StreamEvent::kNothing);
  PublishEqual(writer, 4);
  EXPECT_EQ(stream.Look(), StreamEvent::kFrame);
  EXPECT_EQ(stream.Pixels().at(0), std::byte{4});
}

/// What comes next that is something.
StreamEvent NextEvent(Follower& stream) {
  for (int look = 0; look < 500; ++look) {
    const StreamEvent event = stream.Look();
    if (event != StreamEvent::kNothing) return event;
  }
  return StreamEvent::kNothing;
}

TEST(Follower, GoesOnWithAStreamThatIsMadeAnew) {
  const StreamFolder folder;
  auto writer = std::make_unique<Writer>(SmallStream());
  Follower stream("test");
  writer.reset();
  EXPECT_EQ(NextEvent(stream), StreamEvent::kGone);
  EXPECT_EQ(stream.Look(), StreamEvent::kNothing) << "it is gone once";
  writer = std::make_unique<Writer>(stream::StreamConfig{.name = "test", .type = PixelType::kDouble, .size = {2}});
  EXPECT_EQ(NextEvent(stream), StreamEvent::kMadeAnew);
  const std::array pixels = {0.5, 1.5};
  writer->Publish(gsl::as_bytes(gsl::span(pixels)), kAnyTime);
  EXPECT_EQ(NextEvent(stream), StreamEvent::kFrame);
  EXPECT_EQ(ValuesOf(stream.Stream().Type(), stream.Pixels()), (std::vector{0.5, 1.5}));
}

TEST(Follower, WaitsForAStreamToBeMade) {
  const StreamFolder folder;
  ExpectThrows<std::runtime_error>(
      "there is no stream " + (folder / "test.im.shm") + ", and none was made within 0.05 s; start its program",
      [] { FollowOnceThere("test", std::chrono::milliseconds(50)); });
  const Writer writer(SmallStream());
  EXPECT_EQ(FollowOnceThere("test", std::chrono::milliseconds(50)).Name(), "test");
}

// --- Statistics

/// A stream of 4 × 3 pixels with the keyword FRAME, and what is seen of it.
class FrameStatisticsOf : public ::testing::Test {
 protected:
  /// A frame of other pixels than those before, in each row.
  void Publish(std::int64_t number, std::size_t new_rows = 3) {
    ++last_;
    std::fill_n(pixels_.begin(), 4 * new_rows, last_);
    PublishAgain(number);
  }
  void PublishAgain(std::int64_t number) {
    const std::vector<stream::KeywordValue> values = {number};
    writer_.Publish(gsl::as_bytes(gsl::span(pixels_)), kAnyTime, values);
  }
  void Look() { statistics_.Take(stream_.Look(), stream_); }
  /// Frames that come as they ought to.
  void Begin() {
    for (int k = 0; k < 8; ++k) {
      Publish(next_++);
      Look();
    }
  }
  [[nodiscard]] const FrameCounts& Counts() const { return statistics_.Counts(); }

  StreamFolder folder_;
  Writer writer_{{.name = "test", .size = {4, 3}, .keywords = {{"FRAME", std::int64_t{-1}}}}};
  std::vector<std::int16_t> pixels_ = std::vector<std::int16_t>(12);
  std::int16_t last_ = 0;
  std::int64_t next_ = 0;
  Follower stream_{"test"};
  FrameStatistics statistics_;
};

TEST_F(FrameStatisticsOf, AGoodStreamHasNothingToTell) {
  Begin();
  EXPECT_EQ(Counts().frames, 8);
  EXPECT_EQ(Counts().lost + Counts().unpublished + Counts().repeated + Counts().torn + Counts().overtaken +
                Counts().misnumbered + Counts().made_anew,
            0);
  EXPECT_EQ(statistics_.Intervals().Count(), 7);
  EXPECT_EQ(statistics_.Latencies().Count(), 8);
  EXPECT_GE(statistics_.Latencies().Least(), 0.0);
  EXPECT_GT(statistics_.Rate(), 0.0);
}

TEST_F(FrameStatisticsOf, FramesThatNobodyReadAreLost) {
  Begin();
  Publish(next_++);
  Publish(next_++);
  Publish(next_++);
  Look();
  EXPECT_EQ(Counts().lost, 2);
  EXPECT_EQ(Counts().unpublished, 0);
  EXPECT_EQ(Counts().misnumbered, 0);
}

TEST_F(FrameStatisticsOf, FramesThatWereNeverWrittenAreTold) {
  Begin();
  Publish(next_ + 3);
  Look();
  EXPECT_EQ(Counts().lost, 0);
  EXPECT_EQ(Counts().unpublished, 3);
}

TEST_F(FrameStatisticsOf, ACounterThatGoesAheadIsNoLoss) {
  Begin();
  Publish(next_);  // nobody looks
  Publish(next_);
  Look();
  EXPECT_EQ(Counts().lost, 0);
  EXPECT_EQ(Counts().misnumbered, 1);
}

TEST_F(FrameStatisticsOf, EqualFramesAreRepeated) {
  Begin();
  PublishAgain(next_);
  Look();
  EXPECT_EQ(Counts().repeated, 1);
  EXPECT_EQ(Counts().torn, 0);
  EXPECT_EQ(Counts().misnumbered, 0);
}

TEST_F(FrameStatisticsOf, AFrameOfNewRowsAndOldOnesIsTorn) {
  Begin();
  Publish(next_++, 2);
  Look();
  EXPECT_EQ(Counts().torn, 1);
  EXPECT_EQ(Counts().repeated, 0);
  Begin();
  EXPECT_EQ(Counts().torn, 1);
}

TEST_F(FrameStatisticsOf, RowsThatDoNotAlwaysChangeSayNothing) {
  for (int k = 0; k < 20; ++k) {
    Publish(next_++, k % 2 == 0 ? 2 : 3);
    Look();
  }
  EXPECT_EQ(Counts().torn, 0);
}

TEST(FrameStatistics, OddFramesOfUnsignedPixelsAreTold) {
  const StreamFolder folder;
  constexpr std::size_t kSide = 4 * FrameContents::kTile;
  Writer writer({.name = "test", .type = PixelType::kUint16, .size = {kSide, kSide}});
  Follower stream("test");
  FrameStatistics statistics;
  std::vector<std::uint16_t> pixels(kSide * kSide);
  std::mt19937 random(1);
  const auto publish = [&] {
    writer.Publish(gsl::as_bytes(gsl::span(pixels)), kAnyTime);
    statistics.Take(stream.Look(), stream);
  };
  for (std::size_t k = 0; k < FrameContents::kLearned + 3; ++k) {
    for (std::uint16_t& pixel : pixels) pixel = static_cast<std::uint16_t>(32700 + random() % 100);
    publish();
  }
  EXPECT_EQ(std::ranges::count(statistics.Counts().odd, 0), 7) << "they are about half of what there can be";
  std::ranges::fill(pixels, std::uint16_t{65535});
  publish();
  EXPECT_TRUE(statistics.TellsOddities());
  EXPECT_EQ(statistics.Counts().odd, (std::array<std::uint64_t, 7>{0, 1, 0, 0, 0, 0, 0}));
}

TEST(FrameStatistics, OddFramesAreToldOfImagesOfSixteenBits) {
  const StreamFolder folder;
  const std::uint32_t side = 4 * FrameContents::kTile;
  int number = 0;
  const auto tells = [&](const std::vector<std::uint32_t>& size, PixelType type) {
    const std::string name = "test" + std::to_string(++number);
    Writer writer({.name = name, .type = type, .size = size});
    Follower stream(name);
    FrameStatistics statistics;
    statistics.Take(stream.Look(), stream);
    return statistics.TellsOddities();
  };
  EXPECT_TRUE(tells({side, side}, PixelType::kInt16));
  EXPECT_FALSE(tells({side, side}, PixelType::kInt32));
  EXPECT_FALSE(tells({side, side - 1}, PixelType::kInt16));
  EXPECT_FALSE(tells({side, side, 2}, PixelType::kInt16));
  EXPECT_FALSE(tells({side * side}, PixelType::kInt16));
}

TEST_F(FrameStatisticsOf, AFrameThatIsBeingWrittenIsOvertakenOnce) {
  Begin();
  Publish(next_++);
  constexpr std::streamoff kWrite = 288;  // the place of the flag
  std::fstream file(writer_.Path(), std::ios::binary | std::ios::in | std::ios::out);
  file.seekp(kWrite).put(1).flush();
  Look();
  Look();
  EXPECT_EQ(Counts().overtaken, 1);
  EXPECT_EQ(Counts().frames, 8);
  file.seekp(kWrite).put(0).flush();
  Look();
  EXPECT_EQ(Counts().frames, 9);
}

TEST_F(FrameStatisticsOf, FramesThatWereThereBeforeDoNotCount) {
  Publish(0);
  Follower late("test");
  FrameStatistics statistics;
  statistics.Take(late.Look(), late);
  EXPECT_EQ(statistics.Counts().frames, 0);
  PublishAgain(1);
  statistics.Take(late.Look(), late);
  EXPECT_EQ(statistics.Counts().frames, 1);
  EXPECT_EQ(statistics.Counts().repeated, 1);
}

// --- Recording

TEST(Recording, RefusesWhatFitsHasNot) {
  const StreamFolder folder;
  const Writer writer({.name = "test", .type = PixelType::kComplexFloat, .size = {2}});
  const stream::Reader reader("test");
  ExpectThrows<std::runtime_error>(
      "the stream cannot be recorded: expected pixels that FITS has, whole numbers or float32 or float64, found "
      "complex64",
      [&] { const Recording recording(reader, 1); });
}

TEST(Recording, RefusesOtherFramesAfterAwhile) {
  const StreamFolder folder;
  auto writer = std::make_unique<Writer>(SmallStream());
  Recording recording(stream::Reader("test"), 2);
  writer.reset();
  writer = std::make_unique<Writer>(stream::StreamConfig{.name = "test", .size = {3, 5}});
  ExpectThrows<std::runtime_error>(
      "the stream was made anew with other frames: expected 5 x 3, int16, found 3 x 5, int16",
      [&] { recording.Take(stream::Reader("test"), {}, std::vector<std::byte>(30)); });
}

}  // namespace
}  // namespace quen::workbench
