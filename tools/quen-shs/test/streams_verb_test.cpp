#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <thread>

#include "stream/test/streams.hpp"
#include "testing/fits_files.hpp"
#include "tools/quen-shs/test/quen_shs.hpp"
#include "workbench/sensor/camera.hpp"

// The verb watch, and the loop through streams.

namespace {

using quen::stream::KeywordValue;
using quen::stream::PixelType;
using quen::stream::StreamConfig;
using quen::stream::Writer;
using quen::testing::Outcome;
using quen::testing::QuenShs;
using quen::testing::Quoted;
using quen::testing::StreamFolder;
using Json = nlohmann::json;

/// Frames of 8 × 6 pixels, 500 a second, each other than the one before.
class Publishing {
 public:
  explicit Publishing(const StreamConfig& config = {.name = "test",
                                                    .type = PixelType::kUint16,
                                                    .size = {8, 6},
                                                    .keywords = {{"FRAME", std::int64_t{0}}}})
      : writer_(config), thread_([this] { Run(); }) {}
  ~Publishing() {
    is_over_ = true;
    thread_.join();
  }
  Publishing(const Publishing&) = delete;
  Publishing& operator=(const Publishing&) = delete;
  Publishing(Publishing&&) = delete;
  Publishing& operator=(Publishing&&) = delete;

 private:
  void Run() {
    std::vector<std::byte> pixels(writer_.Bytes());
    for (std::int64_t frame = 0; !is_over_; ++frame) {
      std::ranges::fill(pixels, static_cast<std::byte>(frame));
      const std::vector<KeywordValue> values = {frame};
      writer_.Publish(pixels, quen::stream::Now(), values);
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }

  Writer writer_;
  std::atomic<bool> is_over_ = false;
  std::thread thread_;
};

class StreamVerbs : public quen::testing::SensorToolTest {
 protected:
  StreamFolder streams_;
};

TEST_F(StreamVerbs, WatchTellsHowFramesCome) {
  const Publishing publishing;
  const std::string out = Done("watch test --frames 50");
  EXPECT_TRUE(out.starts_with("stream                  " + (streams_ / "test.im.shm") +
                              ": 8 x 6, uint16; keywords FRAME\nframes                  50 in "))
      << out;
  for (const char* const line : {"\nrate ", "\nlost ", "\nrepeated                0, ", "\ntorn                    0, ",
                                 "\novertaken ", "\nlatency ", "\ninterval "}) {
    EXPECT_NE(out.find(line), std::string::npos) << line << out;
  }
  const Json json = Json::parse(Done("watch test --frames 50 --json"));
  EXPECT_EQ(json["size"], (std::vector{8, 6}));
  EXPECT_EQ(json["type"], "uint16");
  EXPECT_EQ(json["frames"], 50);
  EXPECT_EQ(json["unpublished"], 0);
  EXPECT_EQ(json["made_anew"], 0);
  EXPECT_EQ(json["semaphore"], true);
  EXPECT_GT(json["frames_per_second"], 50.0);
  EXPECT_LT(json["frames_per_second"], 600.0);
  EXPECT_GT(json["latency_ms"]["median"], 0.0);
  EXPECT_GE(json["latency_ms"]["worst"], json["latency_ms"]["p99"]);
  EXPECT_GE(json["interval_ms"]["median"], 1.9);
}

TEST_F(StreamVerbs, WatchTakesStreamsOfOthers) {
  ASSERT_EQ(quen::testing::RunPlainStream("make " + Quoted(streams_ / "foreign.im.shm")).exit_code, 0);
  EXPECT_EQ(Done("watch foreign --png " + File("foreign.png"))
                .find("stream                  " + (streams_ / "foreign.im.shm") + ": 4 x 3, float32; keywords GAIN\n"),
            0U);
  EXPECT_EQ(quen::testing::Bytes(File("foreign.png")).at(1), 'P');
  const Outcome outcome = QuenShs("watch foreign --seconds 0.1 --json");
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.err, "quen-shs: stream foreign: no frame has come\n");
  const Json json = Json::parse(outcome.out);
  EXPECT_EQ(json["frames"], 0);
  EXPECT_EQ(json["count"], 7);
  EXPECT_EQ(json["keywords"]["GAIN"], 0.25);
  EXPECT_EQ(json["latency_ms"], nullptr);
}

TEST_F(StreamVerbs, WatchWritesNothingButItsSemaphore) {
  const std::string path = streams_ / "foreign.im.shm";
  ASSERT_EQ(quen::testing::RunPlainStream("make " + Quoted(path)).exit_code, 0);
  const std::vector<char> before = quen::testing::Bytes(path);
  QuenShs("watch foreign --seconds 0.1");
  EXPECT_EQ(quen::testing::Bytes(path), before) << "the semaphore is given back";
}

TEST_F(StreamVerbs, WatchDrawsStreamsOfAnyShape) {
  for (const std::vector<std::uint32_t>& size : {std::vector<std::uint32_t>{52}, {52, 1}, {100, 80}, {70, 66, 3}}) {
    const Publishing publishing(
        {.name = "test", .type = PixelType::kComplexDouble, .size = size, .keywords = {{"FRAME", std::int64_t{0}}}});
    Done("watch test --frames 3 --png " + File("test.png"));
    EXPECT_EQ(quen::testing::Bytes(File("test.png")).at(1), 'P');
    std::filesystem::remove(File("test.png"));
  }
  const Publishing publishing({.name = "wide", .size = {9000}, .keywords = {{"FRAME", std::int64_t{0}}}});
  ExpectFailure("watch wide --frames 1 --png " + File("test.png"), 1,
                "quen-shs: stream wide: expected at most 8000 pixels along either axis for a picture, found 9000 x 1");
}

TEST_F(StreamVerbs, WatchRecordsACube) {
  const Publishing publishing;
  const Json json = Json::parse(Done("watch test --frames 5 --json --record " + File("cube.fits")));
  EXPECT_EQ(json["files"], std::vector{File("cube.fits")});
  const std::vector<char> bytes = quen::testing::Bytes(File("cube.fits"));
  const std::string text(bytes.begin(), bytes.end());
  for (const char* const card :
       {"NAXIS1  =                    8", "NAXIS2  =                    6", "NAXIS3  =                    5",
        "BZERO   =                32768", "STREAM  = 'test    '", "EXTNAME = 'frames  '"}) {
    EXPECT_NE(text.find(card), std::string::npos) << card;
  }
}

TEST_F(StreamVerbs, WatchSaysWhatIsWrong) {
  ExpectFailure("watch test", 1, "quen-shs: there is no stream " + (streams_ / "test.im.shm"));
  ExpectFailure("watch a/b", 1,
                "quen-shs: the name of a stream must have 1 to 79 bytes, no slash and no zero byte, found 'a/b'");
  ExpectFailure("watch test --record " + File("cube.fits"), 1,
                "quen-shs: --record: expected --frames with it, found none");
  const Writer writer({.name = "test", .type = PixelType::kHalf, .size = {5}});
  ExpectFailure("watch test --frames 1 --record " + File("cube.fits"), 1,
                "quen-shs: the stream cannot be recorded: expected pixels that FITS has, whole numbers or float32 or "
                "float64, found float16");
  EXPECT_FALSE(std::filesystem::exists(File("cube.fits")));
  const Writer other({.name = "other", .size = {5}});
  const Outcome outcome = QuenShs("watch other --frames 2 --seconds 0.1 --record " + File("cube.fits"));
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.err, "quen-shs: stream other: no frame has come\n");
  EXPECT_FALSE(std::filesystem::exists(File("cube.fits")));
}

TEST_F(StreamVerbs, WatchSeesThatAStreamIsMadeAnew) {
  auto publishing = std::make_unique<Publishing>();
  Outcome outcome = {};
  std::thread watching([&outcome] { outcome = QuenShs("watch test --seconds 1.5 --json"); });
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  publishing.reset();
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  publishing = std::make_unique<Publishing>();
  watching.join();
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.err,
            "quen-shs: stream test is gone: its writer has ended, or its file was removed; waiting for another\n"
            "quen-shs: stream test was made anew; it is followed\n");
  const Json json = Json::parse(outcome.out);
  EXPECT_EQ(json["made_anew"], 1);
  EXPECT_EQ(json["gone"], false);
  EXPECT_GT(json["frames"], 20);
}

TEST_F(StreamVerbs, CtrlCPrintsTheSummary) {
  const Publishing publishing;
  const Outcome outcome = quen::testing::Run(
      "timeout --foreground --preserve-status -s INT 0.5 " QUEN_SHS " watch test --png " + File("test.png"));
  EXPECT_EQ(outcome.exit_code, 0) << "a picture alone is no matter of waiting";
  const Outcome watched = quen::testing::Run("timeout --foreground --preserve-status -s INT 0.5 " QUEN_SHS
                                             " watch test --json --frames 1000000");
  EXPECT_EQ(watched.exit_code, 130);
  EXPECT_EQ(watched.err, "quen-shs: interrupted\n");
  EXPECT_GT(Json::parse(watched.out)["frames"], 5);
}

TEST_F(StreamVerbs, WatchRenewsItsLineOnATerminal) {
  const Publishing publishing;
  const Outcome outcome = quen::testing::Run("script -qec " + Quoted(QUEN_SHS " watch test --seconds 0.7") + " " +
                                             File("typescript") + " < /dev/null");
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_NE(outcome.out.find("\r\033[K"), std::string::npos);
  EXPECT_NE(outcome.out.find("/s, latency "), std::string::npos) << outcome.out;
}

// --- The loop through streams

/// A server that renders nothing: frames of the sensor's size.
StreamConfig FramesOfTheSensor() {
  return {.name = "frames",
          .size = {quen::basesim::kFrameWidth, quen::basesim::kFrameHeight},
          .keywords = {{"FRAME", std::int64_t{0}}}};
}

TEST_F(StreamVerbs, LoopControlsThroughStreams) {
  const Publishing publishing(FramesOfTheSensor());
  Json json;
  std::thread controlling([&] {
    json = Json::parse(Do("loop", "--through frames --corrections modes --frames 100 --gain 0.3 --leak 0.1 --json"));
  });
  std::unique_ptr<quen::stream::Reader> modes;
  while (!modes) {
    try {
      modes = std::make_unique<quen::stream::Reader>("modes");
    } catch (const quen::stream::NotThere&) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  EXPECT_EQ(modes->Type(), PixelType::kDouble);
  EXPECT_EQ(modes->Size(), std::vector<std::uint32_t>{52});
  EXPECT_GT(modes->Wait(modes->Count(), std::chrono::seconds(30)), 0);
  controlling.join();
  EXPECT_EQ(modes->Count(), 100);
  EXPECT_TRUE(modes->IsReplaced()) << "it ends with the controller";
  EXPECT_EQ(json["frames"], 100);
  EXPECT_EQ(json["through"], "frames");
  EXPECT_EQ(json["corrections"], "modes");
  EXPECT_EQ(json["gain"], 0.3);
  EXPECT_EQ(json["leak"], 0.1);
  EXPECT_EQ(json["engine"], "centre-of-gravity");
  EXPECT_TRUE(json.contains("lost_frames"));
  EXPECT_TRUE(json.contains("slopes_rms"));
  EXPECT_GT(json["frames_per_second"], 5.0);
  EXPECT_FALSE(std::filesystem::exists(File("loop"))) << "no file is written";
}

TEST_F(StreamVerbs, LoopThroughStreamsEndsByCtrlCWithItsReport) {
  const Publishing publishing(FramesOfTheSensor());
  const Outcome outcome = quen::testing::Run("timeout --foreground --preserve-status -s INT 1 " QUEN_SHS
                                             " loop --through frames --corrections modes " +
                                             folder_.Path());
  EXPECT_EQ(outcome.exit_code, 130);
  EXPECT_EQ(outcome.err, "quen-shs: interrupted\n");
  EXPECT_NE(outcome.out.find(" of stream frames (gain 0.5, centre-of-gravity)\nlost frames "), std::string::npos)
      << outcome.out;
  EXPECT_NE(outcome.out.find("\nslopes "), std::string::npos) << outcome.out;
  EXPECT_NE(outcome.out.find("\nspeed "), std::string::npos) << outcome.out;
}

TEST_F(StreamVerbs, LoopThroughStreamsRefusesWhatMakesFrames) {
  const std::string more = "\nRun with --help for more information.";
  for (const std::string option :
       {"--delay 2", "--d-over-r0 3", "--disturbance x", "--noise 1", "--seed 2", "--detector x", "--photons 10",
        "--sweep gain=0.1:0.2:0.1", "--folder x", "--use-maps"}) {
    std::string sentence = option.substr(0, option.find(' '));
    sentence += ", --through: expected one of the two, found both" + more;
    ExpectFailure("loop x --through frames --corrections modes " + option, 2, sentence);
  }
  ExpectFailure("loop x --through frames", 2, "--through: expected --corrections with it, found none" + more);
  ExpectFailure("loop x --corrections modes", 2, "--corrections: expected --through with it, found none" + more);
  ExpectFailure("loop x --timeout 1", 2, "--timeout: expected --through with it, found none" + more);
}

TEST_F(StreamVerbs, LoopThroughStreamsReportsWhenNoFrameComes) {
  const Writer writer(FramesOfTheSensor());
  const Outcome outcome = QuenShs("loop --through frames --corrections modes --timeout 0.2 --json " + folder_.Path());
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.err, "quen-shs: stream frames: no frame has come for 0.2 s\n");
  EXPECT_EQ(Json::parse(outcome.out)["frames"], 0);
}

}  // namespace
