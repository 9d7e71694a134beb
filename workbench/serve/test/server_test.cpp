#include "workbench/serve/server.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <thread>

#include "stream/reader.hpp"
#include "stream/test/streams.hpp"
#include "testing/exceptions.hpp"
#include "testing/malloc_calls.hpp"
#include "workbench/sensor/basis.hpp"
#include "workbench/sensor/calibration.hpp"
#include "workbench/sensor/calibration_lookup.hpp"
#include "workbench/serve/test/fake_clock.hpp"

namespace quen::workbench {
namespace {

using quen::testing::ExpectThrows;
using quen::testing::FakeClock;
using quen::testing::StreamFolder;
using std::chrono::milliseconds;

using SignedPixels = std::vector<std::int16_t>;

/// A frame as a reader finds it.
struct Seen {
  std::int64_t number = 0;
  std::uint64_t cnt0 = 0;
  SignedPixels pixels;

  bool operator==(const Seen&) const = default;
};

/// Spots at rest. Whenever a frame is drawn, looks at the one that is in the stream.
class Watching : public SpotSource {
 public:
  explicit Watching(std::function<void(std::uint64_t)> before_frame) : before_frame_(std::move(before_frame)) {}

  const Displacements& Latch() override {
    Look();
    before_frame_(frame_);
    return displacements_;
  }
  void Advance() override { ++frame_; }
  [[nodiscard]] std::string End() const override { return ""; }
  [[nodiscard]] LatchedStream* Input() override { return nullptr; }
  [[nodiscard]] const Eigen::VectorXd& Residual() const override { return modes_; }
  [[nodiscard]] const Eigen::VectorXd& Correction() const override { return modes_; }
  [[nodiscard]] std::uint64_t InputNumber() const override { return 0; }

  std::vector<Seen> seen;

 private:
  void Look() {
    const quen::stream::Reader reader("wfs");
    if (reader.Count() == 0) return;
    Seen one;
    one.pixels.resize(kFrameWidth * kFrameHeight);
    quen::stream::FrameInfo info;
    EXPECT_TRUE(reader.Read(gsl::as_writable_bytes(gsl::span(one.pixels)), info));
    one.cnt0 = info.count;
    one.number = std::get<std::int64_t>(info.values.front());
    seen.push_back(std::move(one));
  }

  std::function<void(std::uint64_t)> before_frame_;
  std::uint64_t frame_ = 0;
  Displacements displacements_;
  Eigen::VectorXd modes_ = Eigen::VectorXd::Zero(kNumModes);
};

class ServerTest : public ::testing::Test {
 protected:
  ServerTest() {
    WriteCalibration(calibration_.Path(), false);
    UseCalibration(calibration_.Path());
  }

  /// What was in the stream before each frame but the first; the last frame is not among them.
  std::vector<Seen> Serve(
      const ServeOptions& options, const std::string& faults = "[]",
      const std::function<void(std::uint64_t)>& before_frame = [](std::uint64_t) {}) {
    Camera camera;
    Watching spots(before_frame);
    Server server(camera, spots, options,
                  FaultScript(ReadFaults(InputFile::InMemory("faults.json", faults)), options.rate), nullptr, clock_);
    server.Run();
    counts_ = server.Counts();
    return spots.seen;
  }

  /// The frames that the library draws one after the other.
  static std::vector<SignedPixels> Drawn(int frames) {
    Camera camera;
    camera.Use({.noise = 10.0, .seed = 3});
    std::vector<SignedPixels> drawn;
    for (int k = 0; k < frames; ++k) {
      camera.Draw({});
      drawn.emplace_back(camera.Frame().begin(), camera.Frame().end());
    }
    return drawn;
  }

  static ServeOptions Options(double rate, std::uint64_t frames) {
    return {.stream = "wfs", .rate = rate, .frames = frames, .exposure = {.noise = 10.0, .seed = 3}};
  }

  StreamFolder folder_;
  FakeClock clock_;
  ServeCounts counts_;

 private:
  quen::testing::TempDir calibration_;
};

TEST_F(ServerTest, FramesAreTheOnesThatTheLibraryDraws) {
  const auto drawn = Drawn(3);
  const auto seen = Serve(Options(0.0, 4));
  ASSERT_EQ(seen.size(), 3U);
  for (std::size_t k = 0; k < 3; ++k) EXPECT_EQ(seen[k], (Seen{static_cast<std::int64_t>(k), k + 1, drawn[k]})) << k;
  EXPECT_EQ(counts_.frames, 4U);
  EXPECT_EQ(counts_.published, 4U);
  EXPECT_EQ(counts_.end, "all frames have gone by");
  EXPECT_EQ(quen::testing::EntriesBelow(folder_.Path()), 0U) << "the stream is unlinked";
}

TEST_F(ServerTest, SkippedFrameAdvancesTheNumberButNotTheNoise) {
  const auto drawn = Drawn(5);
  // Frame 2 takes 35 ms, so that 3 and 4 are over when it is published, and 5 is late.
  const auto seen = Serve(Options(100.0, 8), "[]", [this](std::uint64_t frame) {
    if (frame == 2) clock_.Pass(milliseconds(35));
  });
  ASSERT_EQ(seen.size(), 5U);
  const std::vector<std::int64_t> numbers = {0, 1, 2, 5, 6};
  for (std::size_t k = 0; k < seen.size(); ++k) EXPECT_EQ(seen[k], (Seen{numbers[k], k + 1, drawn[k]})) << k;
  EXPECT_EQ(counts_.skipped, 2U);
  EXPECT_EQ(counts_.frames, 8U);
  EXPECT_NEAR(counts_.lateness.Worst(), 0.035, 0.001);
}

TEST_F(ServerTest, FramesComeAtTheirTime) {
  const Time start = clock_.Now();
  Serve(Options(100.0, 11));
  EXPECT_EQ(clock_.Now() - start, milliseconds(100));
  EXPECT_EQ(counts_.lateness.Worst(), 0.0);
  EXPECT_NEAR(counts_.Rate(), 100.0, 1e-9);
}

TEST_F(ServerTest, FaultOnASkippedFrameMovesToTheNext) {
  const auto seen = Serve(Options(100.0, 8), R"([{"frame":3,"kind":"saturate"}])", [this](std::uint64_t frame) {
    if (frame == 2) clock_.Pass(milliseconds(35));
  });
  ASSERT_EQ(seen.size(), 5U);
  EXPECT_EQ(seen[3].number, 5);
  EXPECT_EQ(seen[3].pixels, SignedPixels(kFrameWidth * kFrameHeight, 32767));
  EXPECT_EQ(counts_.faulty, 1U);
}

TEST_F(ServerTest, DrawnAheadTheyAreTheSame) {
  const auto drawn = Drawn(6);
  ServeOptions options = Options(100.0, 7);
  options.ahead = 3;
  Camera camera;
  Watching spots([](std::uint64_t) {});
  Server server(camera, spots, options, std::nullopt, nullptr, clock_);
  server.Run();
  // With frames ready, the one in the stream is older than the one that is drawn.
  for (const Seen& seen : spots.seen) {
    EXPECT_EQ(seen.pixels, drawn.at(static_cast<std::size_t>(seen.number)));
    EXPECT_EQ(seen.cnt0, static_cast<std::uint64_t>(seen.number) + 1);
  }
  EXPECT_GE(spots.seen.size(), 3U);
  EXPECT_EQ(server.Counts().published, 7U);
}

TEST_F(ServerTest, AfterADelayFramesAreDrawnAheadAgain) {
  ServeOptions options = Options(100.0, 100);
  options.ahead = 3;
  Camera camera;
  Watching spots([this](std::uint64_t frame) {
    if (frame == 10) clock_.Pass(milliseconds(200));
  });
  Server server(camera, spots, options, std::nullopt, nullptr, clock_);
  server.Run();
  EXPECT_EQ(spots.seen.back().number, 96) << "while frame 99 was drawn";
  EXPECT_GT(server.Counts().skipped, 10U);
}

TEST_F(ServerTest, DroppedFrameIsDrawnButNotPublished) {
  const auto drawn = Drawn(4);
  const auto seen = Serve(Options(0.0, 4), R"([{"frame":1,"kind":"drop"}])");
  ASSERT_EQ(seen.size(), 3U);
  EXPECT_EQ(seen[1], seen[0]);
  EXPECT_EQ(seen[2], (Seen{2, 2, drawn[2]}));
  EXPECT_EQ(counts_.published, 3U);
}

TEST_F(ServerTest, RepeatedFrozenAndDoubledFramesAreTold) {
  const auto drawn = Drawn(4);
  EXPECT_EQ(Serve(Options(0.0, 3), R"([{"frame":1,"kind":"repeat"}])")[1], (Seen{0, 2, drawn[0]}));
  EXPECT_EQ(Serve(Options(0.0, 3), R"([{"frame":1,"kind":"freeze"}])")[1], (Seen{1, 2, drawn[0]}));
  EXPECT_EQ(Serve(Options(0.0, 3), R"([{"frame":1,"kind":"twice"}])")[1], (Seen{1, 3, drawn[1]}));
  EXPECT_EQ(Serve(Options(0.0, 3), R"([{"frame":1,"kind":"counter","by":7}])")[1], (Seen{1, 8, drawn[1]}));
  EXPECT_EQ(Serve(Options(0.0, 3), R"([{"frame":1,"kind":"counter","by":0}])")[1], (Seen{1, 1, drawn[1]}));
}

TEST_F(ServerTest, LateFrameComesLateAndTheNextKeepsItsTime) {
  const Time start = clock_.Now();
  Serve(Options(100.0, 4), R"([{"frame":1,"kind":"late","milliseconds":4}])");
  EXPECT_EQ(clock_.Now() - start, milliseconds(30));
  EXPECT_NEAR(counts_.lateness.Worst(), 0.004, 1e-9);
  EXPECT_EQ(counts_.skipped, 0U);
}

TEST_F(ServerTest, PauseLeavesOutTheFramesThatFallIntoIt) {
  Serve(Options(100.0, 10), R"([{"frame":2,"kind":"pause","milliseconds":31}])");
  EXPECT_EQ(counts_.published, 6U);
  EXPECT_EQ(counts_.skipped, 0U);
  EXPECT_NEAR(counts_.intervals.Worst(), 0.05, 1e-9);
}

TEST_F(ServerTest, RemadeStreamBeginsAnewOrGoesOn) {
  const auto drawn = Drawn(4);
  const auto anew = Serve(Options(0.0, 3), R"([{"frame":1,"kind":"remake"}])");
  EXPECT_EQ(anew[1], (Seen{1, 1, drawn[1]}));
  const auto going_on = Serve(Options(0.0, 3), R"([{"frame":1,"kind":"remake","goes_on":1}])");
  EXPECT_EQ(going_on[1], (Seen{1, 2, drawn[1]}));
}

TEST_F(ServerTest, DarkFramesHaveTheSameNoiseWithoutSpots) {
  const auto drawn = Drawn(3);
  const auto seen = Serve(Options(0.0, 4), R"([{"frame":1,"kind":"dark"}])");
  EXPECT_EQ(std::ranges::max(seen[1].pixels), 9);
  EXPECT_EQ(std::ranges::min(seen[1].pixels), -9);
  EXPECT_EQ(seen[2].pixels, drawn[2]) << "as many random numbers were drawn";
}

TEST_F(ServerTest, LostSpotIsGoneAndOthersStay) {
  const auto drawn = Drawn(2);
  const auto seen = Serve(Options(0.0, 3), R"([{"frame":1,"kind":"lost","subaperture":544}])");
  Camera camera;
  const Roi& roi = camera.Rois()[544];
  const auto x = static_cast<std::size_t>(std::lround(roi.x_ref));
  const auto y = static_cast<std::size_t>(std::lround(roi.y_ref));
  EXPECT_GT(drawn[1][x + 840 * y], 3000);
  EXPECT_LT(seen[1].pixels[x + 840 * y], 10);
  std::size_t others = 0;
  for (std::size_t k = 0; k < drawn[1].size(); ++k) others += seen[1].pixels[k] != drawn[1][k] ? 1U : 0U;
  EXPECT_LE(others, 24U * 24U);
}

TEST_F(ServerTest, BurstMakesTheNoiseLargerForItsFrames) {
  const auto seen = Serve(Options(0.0, 5), R"([{"frame":1,"kind":"burst","factor":5,"frames":2},
                                              {"frame":1,"kind":"dark","frames":3}])");
  for (const std::size_t k : {1U, 2U}) {
    EXPECT_LT(std::ranges::min(seen[k].pixels), -45);
    EXPECT_GE(std::ranges::min(seen[k].pixels), -50);
  }
  EXPECT_GE(std::ranges::min(seen[3].pixels), -10);
}

TEST_F(ServerTest, KeywordsTellTheRun) {
  Serve(Options(250.0, 2), "[]", [](std::uint64_t) {
    const auto keywords = quen::stream::Reader("wfs").Keywords();
    ASSERT_EQ(keywords.size(), 4U);
    EXPECT_EQ(keywords[0].name, "FRAME");
    EXPECT_EQ(keywords[1].name, "SEED");
    EXPECT_EQ(keywords[1].value, quen::stream::KeywordValue(std::int64_t{3}));
    EXPECT_EQ(keywords[2].name, "NOISE");
    EXPECT_EQ(keywords[2].value, quen::stream::KeywordValue(10.0));
    EXPECT_EQ(keywords[3].name, "RATE");
    EXPECT_EQ(keywords[3].value, quen::stream::KeywordValue(250.0));
  });
}

TEST_F(ServerTest, LockstepWithoutAnAnswerEndsInASentence) {
  Camera camera;
  MonotonicClock clock;
  ResidualSpots spots(camera, DisturbanceSource(Series::Zero(1, kNumModes), AtEnd::kHold), {.stream = "modes"}, clock);
  ServeOptions options = Options(0.0, 5);
  options.lockstep = milliseconds(50);
  Server server(camera, spots, options, std::nullopt, nullptr, clock);
  ExpectThrows<std::runtime_error>(
      "lockstep: expected an answer in the stream modes within 0.05 s after frame 0 was published, found none; look "
      "after the program that writes it, or give a longer --timeout",
      [&] { server.Run(); });
}

/// Notes how often memory was asked for by the time that each frame is drawn.
class Counting : public SpotSource {
 public:
  explicit Counting(SpotSource& spots) : spots_(spots) { calls.reserve(100); }

  const Displacements& Latch() override {
    calls.push_back(*quen::testing::MallocCalls());
    return spots_.Latch();
  }
  void Advance() override { spots_.Advance(); }
  [[nodiscard]] std::string End() const override { return spots_.End(); }
  [[nodiscard]] LatchedStream* Input() override { return spots_.Input(); }
  [[nodiscard]] const Eigen::VectorXd& Residual() const override { return spots_.Residual(); }
  [[nodiscard]] const Eigen::VectorXd& Correction() const override { return spots_.Correction(); }
  [[nodiscard]] std::uint64_t InputNumber() const override { return spots_.InputNumber(); }

  std::vector<std::size_t> calls;

 private:
  SpotSource& spots_;
};

TEST_F(ServerTest, FramesAllocateNothing) {
  if (!quen::testing::MallocCalls()) GTEST_SKIP() << "a sanitizer's malloc is not counted";
  Camera camera;
  ResidualSpots spots(camera, DisturbanceSource(Disturbance(ZernikeBasis().variances, 20.0, kCorrelation, 1)),
                      {.stream = "modes"}, clock_);
  const quen::testing::TempDir log_folder;
  TruthLog log(FindTarget(log_folder / "log.fits"), [](const quen::common::Fits::Handle&) {});
  quen::stream::Writer corrections({.name = "modes", .type = quen::stream::PixelType::kDouble, .size = {52}});
  const std::vector<double> modes(52, 0.1);
  corrections.Publish(gsl::as_bytes(gsl::span(modes)), quen::testing::kAnyTime);
  Counting counting(spots);
  Server server(camera, counting, Options(500.0, 40), std::nullopt, &log, clock_);
  server.Run();
  ASSERT_EQ(counting.calls.size(), 40U);
  EXPECT_EQ(server.Counts().input.received, 1U);
  EXPECT_EQ(counting.calls[39], counting.calls[2]);  // the first frames attach, and make the kernels' tables
}

// --- The log

TEST_F(ServerTest, LogIsAWholeFileAfterEachBlock) {
  const quen::testing::TempDir folder;
  const std::string path = folder / "log.fits";
  const auto rows_in_file = [&] {
    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    const std::size_t at = bytes.rfind("NAXIS2  =");
    EXPECT_EQ(bytes.size() % 2880, 0U);
    return std::stoi(bytes.substr(at + 10, 20));
  };
  TruthLog log(FindTarget(path), [](const quen::common::Fits::Handle&) {});
  EXPECT_EQ(rows_in_file(), 0);
  for (std::size_t k = 0; k < TruthLog::kRowsInBlock; ++k) log.Add({.frame = static_cast<std::int64_t>(k)});
  while (rows_in_file() == 0) std::this_thread::sleep_for(milliseconds(1));
  EXPECT_EQ(rows_in_file(), 64);
  for (std::size_t k = 0; k < 2000; ++k) log.Add({});
  log.Add({});
  log.Finish();
  EXPECT_EQ(rows_in_file(), 2065);
}

}  // namespace
}  // namespace quen::workbench
