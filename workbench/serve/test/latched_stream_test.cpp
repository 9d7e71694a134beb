#include "workbench/serve/latched_stream.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <optional>
#include <thread>

#include "stream/test/streams.hpp"
#include "testing/exceptions.hpp"
#include "workbench/sensor/calibration.hpp"
#include "workbench/sensor/calibration_lookup.hpp"
#include "workbench/serve/spot_source.hpp"
#include "workbench/serve/test/fake_clock.hpp"

namespace quen::workbench {
namespace {

using quen::stream::PixelType;
using quen::stream::Writer;
using quen::testing::ExpectThrows;
using quen::testing::FakeClock;
using quen::testing::StreamFolder;
using std::chrono::milliseconds;

quen::stream::StreamConfig Modes(PixelType type = PixelType::kDouble, std::vector<std::uint32_t> size = {52}) {
  return {.name = "modes", .type = type, .size = std::move(size)};
}

template <typename T = double>
void Write(Writer& writer, T value) {
  const std::vector<T> pixels(52, value);
  writer.Publish(gsl::as_bytes(gsl::span(pixels)), quen::testing::kAnyTime);
}

class LatchedStreamTest : public ::testing::Test {
 protected:
  /// The first value after looking once more, a while later.
  double Look() {
    clock_.Pass(milliseconds(50));
    EXPECT_TRUE(stream_.Look());
    return stream_.Values().front();
  }

  StreamFolder folder_;
  FakeClock clock_;
  LatchedStream stream_{"modes", {52}, clock_};
};

TEST_F(LatchedStreamTest, IsZeroUntilSomethingComes) {
  EXPECT_EQ(Look(), 0.0);
  EXPECT_EQ(stream_.Number(), 0U);
  Writer writer(Modes());
  EXPECT_EQ(Look(), 0.0) << "made, but nothing written";
  EXPECT_EQ(stream_.Number(), 0U);
  Write(writer, 1.5);
  EXPECT_EQ(Look(), 1.5);
  EXPECT_EQ(stream_.Number(), 1U);
  EXPECT_EQ(stream_.Counts().received, 1U);
  EXPECT_EQ(stream_.Counts().found, 1U);
  EXPECT_FALSE(stream_.IsLost());
}

TEST_F(LatchedStreamTest, ValuesFromBeforeTheStartCount) {
  Writer writer(Modes());
  Write(writer, 1.5);
  EXPECT_EQ(Look(), 1.5);
}

TEST_F(LatchedStreamTest, FloatsAndAnAxisOfOneAreTaken) {
  Writer writer(Modes(PixelType::kFloat, {52, 1}));
  Write(writer, 0.25F);
  EXPECT_EQ(Look(), 0.25);
}

TEST_F(LatchedStreamTest, MadeAnewIsFoundAgain) {
  std::optional<Writer> writer(std::in_place, Modes());
  Write(*writer, 1.0);
  EXPECT_EQ(Look(), 1.0);
  Write(*writer, 2.0);
  writer.reset();
  EXPECT_EQ(Look(), 2.0) << "its last words";
  EXPECT_TRUE(stream_.IsLost());
  EXPECT_EQ(Look(), 2.0) << "held";
  writer.emplace(Modes());
  EXPECT_EQ(Look(), 2.0);
  EXPECT_FALSE(stream_.IsLost());
  Write(*writer, 3.0);
  EXPECT_EQ(Look(), 3.0);
  EXPECT_EQ(stream_.Number(), 1U);
  EXPECT_EQ(stream_.Written(), 3U);
  EXPECT_EQ(stream_.Counts().found, 2U);
  EXPECT_EQ(stream_.Counts().lost, 1U);
}

TEST_F(LatchedStreamTest, ValuesThatAreNotFiniteAreLeft) {
  Writer writer(Modes());
  Write(writer, 1.0);
  EXPECT_EQ(Look(), 1.0);
  for (const double value : {std::nan(""), std::numeric_limits<double>::infinity()}) {
    Write(writer, value);
    EXPECT_EQ(Look(), 1.0);
  }
  EXPECT_EQ(stream_.Counts().not_finite, 2U);
  Write(writer, 4.0);
  EXPECT_EQ(Look(), 4.0);
  EXPECT_EQ(stream_.Number(), 4U);
}

TEST_F(LatchedStreamTest, HalfWrittenOnesAreLeft) {
  Writer writer(Modes());
  Write(writer, 1.0);
  EXPECT_EQ(Look(), 1.0);
  Write(writer, 2.0);
  {
    std::fstream file(writer.Path(), std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(offsetof(quen::stream::Metadata, write)).put('\1');
  }
  EXPECT_FALSE(stream_.Look());
  EXPECT_EQ(stream_.Values().front(), 1.0);
  EXPECT_EQ(stream_.Counts().torn, 1U);
  Write(writer, 3.0);
  EXPECT_EQ(Look(), 3.0);
}

TEST_F(LatchedStreamTest, AnotherShapeIsRefused) {
  const std::string path = folder_ / "modes.im.shm";
  const Writer writer(Modes(PixelType::kDouble, {1, 52}));
  ExpectThrows<std::runtime_error>(path +
                                       ": expected a stream of 52 floats or doubles, found 1 x 52 of them; end the "
                                       "program that makes it, or give another name",
                                   [&] { stream_.Look(); });
}

TEST_F(LatchedStreamTest, AnotherTypeIsRefused) {
  const Writer writer(Modes(PixelType::kInt16));
  ExpectThrows<std::runtime_error>(folder_ / "modes.im.shm" +
                                       ": expected a stream of 52 floats or doubles, found 52 of another type; end the "
                                       "program that makes it, or give another name",
                                   [&] { stream_.Look(); });
}

TEST_F(LatchedStreamTest, AwaitTakesWhatIsWrittenAfterTheMark) {
  Writer writer(Modes());
  Write(writer, 1.0);
  EXPECT_EQ(Look(), 1.0);
  const std::uint64_t mark = stream_.Written();
  EXPECT_FALSE(stream_.Await(mark, Time(0)));
  std::thread answering([&] {
    std::this_thread::sleep_for(milliseconds(20));
    Write(writer, 2.0);
  });
  EXPECT_TRUE(stream_.Await(mark, std::chrono::seconds(30)));
  EXPECT_EQ(stream_.Values().front(), 2.0);
  answering.join();
}

// --- Corrections

class Corrections : public ::testing::Test {
 protected:
  static Series Disturbance() { return Series::Constant(1, kNumModes, 10.0); }

  ResidualSpots Spots(const CorrectionOptions& options) {
    return {simulator_, DisturbanceSource(Disturbance(), AtEnd::kHold), options, clock_};
  }

  /// The first mode of the residual in this frame, and on to the next.
  double Next(ResidualSpots& spots) {
    clock_.Pass(milliseconds(50));
    spots.Latch();
    const double residual = spots.Residual()(0);
    spots.Advance();
    return residual;
  }

  quen::testing::TempDir calibration_;
  StreamFolder folder_;
  FakeClock clock_;
  quen::shssim::ShsSimulator simulator_ = [this] {
    WriteCalibration(calibration_.Path(), false);
    return LoadSimulator(calibration_.Path());
  }();
};

TEST_F(Corrections, ActInTheFrameThatLatchesThem) {
  ResidualSpots spots = Spots({.stream = "modes"});
  EXPECT_EQ(Next(spots), 10.0);
  Writer writer(Modes());
  Write(writer, 1.0);
  EXPECT_EQ(Next(spots), 9.0);
  EXPECT_EQ(Next(spots), 9.0);
}

TEST_F(Corrections, DisplaceTheSpotsByTheMatrix) {
  ResidualSpots spots = Spots({.stream = ""});
  const Displacements& displacements = spots.Latch();
  const Eigen::VectorXd slopes = M2sOf(simulator_) * Eigen::VectorXd::Constant(kNumModes, 10.0);
  const std::size_t first = UsedIndices(simulator_.RoisUsed()).front();
  EXPECT_EQ(displacements.y[first], slopes(0));
  EXPECT_EQ(displacements.x[first], slopes(607));
}

TEST_F(Corrections, DelayIsCountedInFramesThatGoBySkippedOnesToo) {
  ResidualSpots spots = Spots({.stream = "modes", .delay = 2});
  Writer writer(Modes());
  Write(writer, 1.0);
  EXPECT_EQ(Next(spots), 10.0);
  EXPECT_EQ(spots.InputNumber(), 0U);
  Write(writer, 2.0);
  spots.Advance();  // skipped
  Write(writer, 3.0);
  EXPECT_EQ(Next(spots), 9.0);
  EXPECT_EQ(Next(spots), 8.0);
  EXPECT_EQ(Next(spots), 7.0);
}

TEST_F(Corrections, LostOnesAreHeldOrZeroOrEndTheRun) {
  ResidualSpots held = Spots({.stream = "modes", .when_lost = WhenLost::kHold});
  ResidualSpots zero = Spots({.stream = "modes", .when_lost = WhenLost::kZero});
  ResidualSpots stop = Spots({.stream = "modes", .when_lost = WhenLost::kStop});
  {
    Writer writer(Modes());
    Write(writer, 1.0);
    for (ResidualSpots* const spots : {&held, &zero, &stop}) {
      EXPECT_EQ(Next(*spots), 9.0);
      EXPECT_EQ(spots->End(), "");
    }
  }
  EXPECT_EQ(Next(held), 9.0);
  EXPECT_EQ(Next(zero), 10.0);
  Next(stop);
  EXPECT_EQ(held.End(), "");
  EXPECT_EQ(zero.End(), "");
  EXPECT_EQ(stop.End(), "the stream of corrections modes is gone");
}

TEST_F(Corrections, DisplacementsAreDrawnAsTheyStand) {
  StreamedSpots spots("moves", clock_);
  EXPECT_EQ(spots.Latch().x.front(), 0.0);
  Writer writer({.name = "moves", .type = PixelType::kDouble, .size = {1089, 2}});
  std::vector<double> pixels(2178, 0.5);
  std::fill(pixels.begin() + 1089, pixels.end(), -0.25);
  writer.Publish(gsl::as_bytes(gsl::span(pixels)), quen::testing::kAnyTime);
  clock_.Pass(milliseconds(50));
  const Displacements& displacements = spots.Latch();
  EXPECT_EQ(displacements.x, std::vector<double>(1089, 0.5));
  EXPECT_EQ(displacements.y, std::vector<double>(1089, -0.25));
  EXPECT_TRUE(std::isnan(spots.Residual()(0)));
}

}  // namespace
}  // namespace quen::workbench
