#include "workbench/live/controller.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <vector>

#include "stream/test/streams.hpp"
#include "stream/writer.hpp"
#include "testing/exceptions.hpp"
#include "workbench/loop/control_loop.hpp"
#include "workbench/sensor/calibration.hpp"
#include "workbench/sensor/calibration_lookup.hpp"
#include "workbench/sensor/matrices.hpp"

namespace quen::workbench {
namespace {

using stream::PixelType;
using stream::Writer;
using testing::ExpectThrows;
using testing::StreamFolder;

/// The program at the other end: it renders frames of the residual, and reads corrections.
class Server {
 public:
  explicit Server(Camera& camera, const Exposure& exposure) : camera_(camera), used_(UsedIndices(camera.RoisUsed())) {
    camera_.Use(exposure);
  }

  void Publish(const Eigen::VectorXd& disturbance) {
    residual_ = disturbance - Corrections();
    const Eigen::VectorXd slopes = M2sOf(camera_) * residual_;
    SetUsedDisplacements(slopes, used_, displacements_);
    camera_.Draw(displacements_);
    const std::vector<stream::KeywordValue> values = {number_++};
    writer_.Publish(gsl::as_bytes(gsl::span(camera_.Frame())), testing::kAnyTime, values);
  }

  /// The newest; zero as long as there are none.
  Eigen::VectorXd Corrections() {
    Eigen::VectorXd modes = Eigen::VectorXd::Zero(kNumModes);
    if (!reader_ && number_ > 0) reader_.emplace("modes");
    if (!reader_) return modes;
    EXPECT_TRUE(reader_->Read(gsl::as_writable_bytes(gsl::span(modes.data(), kNumModes)), info_));
    return modes;
  }

  [[nodiscard]] const Eigen::VectorXd& Residual() const { return residual_; }
  [[nodiscard]] const stream::FrameInfo& Info() const { return info_; }

 private:
  Camera& camera_;
  std::vector<std::size_t> used_;
  Displacements displacements_;
  Eigen::VectorXd residual_;
  std::int64_t number_ = 0;
  Writer writer_{
      {.name = "frames", .size = {kFrameWidth, kFrameHeight}, .keywords = {{"FRAME", std::int64_t{0}, "from 0"}}}};
  std::optional<stream::Reader> reader_;
  stream::FrameInfo info_;
};

class ControllerTest : public ::testing::Test {
 protected:
  ControllerTest() { WriteCalibration(folder_.Path(), false); }

  [[nodiscard]] Camera MadeCamera() const { return LoadSimulator<Camera>(folder_.Path()); }

  StreamFolder folder_;
  ControllerOptions options_ = {.frames = "frames", .corrections = "modes", .gain = 0.4, .leak = 0.02, .timeout = 0.2};
};

TEST_F(ControllerTest, ThroughStreamsTheLoopIsTheOneOfASingleProcess) {
  constexpr int kFrames = 30;
  Camera camera = MadeCamera();
  LoopOptions options;
  options.gain = options_.gain;
  options.leak = options_.leak;
  options.exposure.seed = 5;
  const Series disturbance =
      TurbulentSeries(kFrames, Eigen::VectorXd::Constant(kNumModes, 0.01), 20.0, options.exposure.seed);
  const LoopRun run = RunLoop(camera, disturbance, options, [] {});

  Server server(camera, options.exposure);
  Camera controllers_camera = MadeCamera();
  std::optional<Controller> controller;
  for (int frame = 0; frame < kFrames; ++frame) {
    server.Publish(disturbance.row(frame).transpose());
    ASSERT_EQ(server.Residual(), run.records.at(static_cast<std::size_t>(frame)).residual) << frame;
    if (!controller) controller.emplace(controllers_camera, options_);
    ASSERT_EQ(controller->Step(), StreamEvent::kFrame);
  }
  EXPECT_LT(server.Residual().norm(), run.records.front().residual.norm());
  server.Corrections();
  EXPECT_EQ(server.Info().count, kFrames);
  EXPECT_EQ(server.Info().values.front(), stream::KeywordValue(std::int64_t{kFrames - 1})) << "the frame's own number";
  EXPECT_EQ(server.Info().acquired.tv_sec, testing::kAnyTime.tv_sec) << "the frame's own time";
  EXPECT_EQ(controller->Counts().frames, kFrames);
  EXPECT_EQ(controller->Counts().lost, 0);
  EXPECT_LT(controller->RecentSlopes(), controller->FirstSlopes());
}

TEST_F(ControllerTest, CountsFramesThatItDidNotSee) {
  Camera camera = MadeCamera();
  Server server(camera, {});
  const Eigen::VectorXd flat = Eigen::VectorXd::Zero(kNumModes);
  server.Publish(flat);
  Camera controllers_camera = MadeCamera();
  Controller controller(controllers_camera, options_);
  ASSERT_EQ(controller.Step(), StreamEvent::kFrame);
  for (int k = 0; k < 3; ++k) server.Publish(flat);
  ASSERT_EQ(controller.Step(), StreamEvent::kFrame);
  EXPECT_EQ(controller.Counts().lost, 2);
  EXPECT_EQ(controller.Latencies().Count(), 1) << "that of the first frame was there before";
}

TEST_F(ControllerTest, WaitsForFramesAsLongAsItIsTold) {
  Camera camera = MadeCamera();
  ExpectThrows<std::runtime_error>(
      "there is no stream " + (folder_ / "frames.im.shm") + ", and none was made within 0.2 s; start its program",
      [&] { const Controller controller(camera, options_); });
  const Writer writer({.name = "frames", .size = {kFrameWidth, kFrameHeight}});
  Controller controller(camera, options_);
  ExpectThrows<std::runtime_error>("stream frames: no frame has come for 0.2 s", [&] {
    for (int look = 0; look < 100; ++look) controller.Step();
  });
}

TEST_F(ControllerTest, RefusesStreamsOfSomethingElse) {
  Camera camera = MadeCamera();
  const Writer writer({.name = "frames", .type = PixelType::kFloat, .size = {kFrameWidth, kFrameHeight}});
  ExpectThrows<std::runtime_error>(
      "stream frames: expected frames of 840 x 816, int16 or uint16, found 840 x 816, float32",
      [&] { const Controller controller(camera, options_); });
  options_.corrections = "frames";
  ExpectThrows<std::invalid_argument>(
      "the stream of corrections must be another one than that of the frames, found 'frames' for both",
      [&] { const Controller controller(camera, options_); });
}

TEST_F(ControllerTest, GoesOnWithFramesThatAreMadeAnew) {
  Camera camera = MadeCamera();
  const Eigen::VectorXd flat = Eigen::VectorXd::Zero(kNumModes);
  auto server = std::make_unique<Server>(camera, Exposure());
  server->Publish(flat);
  Camera controllers_camera = MadeCamera();
  options_.timeout = 10.0;
  Controller controller(controllers_camera, options_);
  ASSERT_EQ(controller.Step(), StreamEvent::kFrame);
  server.reset();
  server = std::make_unique<Server>(camera, Exposure());
  while (controller.Step() != StreamEvent::kMadeAnew) {
  }
  server->Publish(flat);
  while (controller.Step() != StreamEvent::kFrame) {
  }
  EXPECT_EQ(controller.Counts().made_anew, 1);
  EXPECT_EQ(controller.Counts().frames, 2);
}

}  // namespace
}  // namespace quen::workbench
