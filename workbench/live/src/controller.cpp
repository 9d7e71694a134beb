#include "workbench/live/controller.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <utility>
#include <variant>
#include <vector>

#include "stream/writer.hpp"
#include "workbench/live/pixels.hpp"
#include "workbench/loop/integrator.hpp"
#include "workbench/sensor/dimensions.hpp"
#include "workbench/sensor/displacements.hpp"

namespace quen::workbench {
namespace {

using Clock = std::chrono::steady_clock;
using quen::centroiders::PixelSign;

constexpr const char* kNumber = "FRAME";

const std::string& Other(const ControllerOptions& options) {
  if (options.corrections != options.frames) return options.corrections;
  throw std::invalid_argument("the stream of corrections must be another one than that of the frames, found '" +
                              options.corrections + "' for both");
}

void RequireFrames(const Follower& stream) {
  const stream::PixelType type = stream.Stream().Type();
  const std::vector<std::uint32_t> size = stream.Stream().Size();
  const bool has_counts = type == stream::PixelType::kInt16 || type == stream::PixelType::kUint16;
  if (has_counts && size == std::vector<std::uint32_t>{kFrameWidth, kFrameHeight}) return;
  throw std::runtime_error(fmt::format("stream {}: expected frames of {} x {}, int16 or uint16, found {}",
                                       stream.Name(), kFrameWidth, kFrameHeight, InWords(size, type)));
}

std::unique_ptr<Engine> EngineFor(const std::string& text, const stream::Reader& reader) {
  const bool is_unsigned = reader.Type() == stream::PixelType::kUint16;
  return MakeEngine(text, {.sign = is_unsigned ? PixelSign::kUnsigned : PixelSign::kSigned});
}

}  // namespace

struct Controller::State {
  /// The root of the mean square of the last values that it was given.
  class RecentRms {
   public:
    void Add(double mean_square) {
      squares_[count_ % squares_.size()] = mean_square;
      ++count_;
    }
    [[nodiscard]] double Get() const {
      const std::size_t count = std::min(count_, squares_.size());
      const double sum = std::accumulate(squares_.begin(), squares_.begin() + static_cast<std::ptrdiff_t>(count), 0.0);
      return count == 0 ? 0.0 : std::sqrt(sum / static_cast<double>(count));
    }

   private:
    std::array<double, 100> squares_ = {};
    std::size_t count_ = 0;
  };

  State(Camera& used_camera, const ControllerOptions& given)
      : camera(used_camera),
        options(given),
        corrections(Other(options)),
        stream(FollowOnceThere(options.frames, std::chrono::duration<double>(options.timeout))),
        integrator(camera, options.gain, options.leak) {
    Prepare();
    writer.emplace(stream::StreamConfig{.name = corrections,
                                        .type = stream::PixelType::kDouble,
                                        .size = {static_cast<std::uint32_t>(kNumModes)},
                                        .keywords = {{kNumber, std::int64_t{-1}, "that the corrections are from"}}});
  }

  void Prepare();
  void Answer();

  Camera& camera;
  ControllerOptions options;
  std::string corrections;
  Follower stream;
  Integrator integrator;
  std::unique_ptr<Engine> engine = {};
  std::size_t place_of_number = 0;
  std::optional<stream::Writer> writer = {};
  std::vector<std::uint16_t> pixels = std::vector<std::uint16_t>(kFrameWidth * kFrameHeight);
  Eigen::VectorXd modes = Eigen::VectorXd::Zero(kNumModes);
  std::vector<stream::KeywordValue> values = {std::int64_t{0}};
  std::uint64_t last_count = 0;  ///< 0: none of this stream
  ControllerCounts counts = {};
  Durations latencies = {};
  Clock::time_point first_frame = {};
  Clock::time_point last_frame = Clock::now();  ///< or when it began to wait for one
  double first_slopes = 0.0;
  RecentRms recent_slopes = {};
};

/// For the stream as it is now.
void Controller::State::Prepare() {
  RequireFrames(stream);
  engine = EngineFor(options.engine, stream.Stream());
  place_of_number = PlaceOf(stream.Stream(), kNumber);
  last_count = 0;
}

void Controller::State::Answer() {
  const stream::FrameInfo& info = stream.Info();
  std::memcpy(pixels.data(), stream.Pixels().data(), stream.Pixels().size());
  camera.Load(pixels);
  camera.ComputeSlopes(*engine, kSlopeLimit, std::nullopt);
  counts.lost_spots += integrator.Integrate(modes, modes);
  const bool is_numbered =
      place_of_number < info.values.size() && std::holds_alternative<std::int64_t>(info.values[place_of_number]);
  values[0] = is_numbered ? info.values[place_of_number] : static_cast<std::int64_t>(info.count);
  writer->Publish(gsl::as_bytes(gsl::span(modes.data(), kNumModes)), info.acquired, values);

  last_frame = Clock::now();
  if (counts.frames == 0) first_frame = last_frame;
  if (last_count != 0 && info.count > last_count) counts.lost += info.count - last_count - 1;
  if (info.count != stream.CountAtFirst()) latencies.Add(SecondsBetween(info.written, stream::Now()));
  last_count = info.count;
  ++counts.frames;
  const double mean_square = integrator.Slopes().squaredNorm() / static_cast<double>(kNumSlopes);
  if (counts.frames == 1) first_slopes = std::sqrt(mean_square);
  recent_slopes.Add(mean_square);
}

Controller::Controller(Camera& camera, const ControllerOptions& options)
    : state_(std::make_unique<State>(camera, options)) {}

Controller::~Controller() = default;

StreamEvent Controller::Step() {
  const StreamEvent event = state_->stream.Look();
  if (event == StreamEvent::kMadeAnew) {
    state_->Prepare();
    ++state_->counts.made_anew;
  }
  if (event == StreamEvent::kFrame) {
    state_->Answer();
  } else if (Clock::now() - state_->last_frame > std::chrono::duration<double>(state_->options.timeout)) {
    throw std::runtime_error(
        fmt::format("stream {}: no frame has come for {:g} s", state_->options.frames, state_->options.timeout));
  }
  return event;
}

const ControllerCounts& Controller::Counts() const { return state_->counts; }
const Durations& Controller::Latencies() const { return state_->latencies; }

double Controller::FramesPerSecond() const {
  const double elapsed = std::chrono::duration<double>(state_->last_frame - state_->first_frame).count();
  return state_->counts.frames > 1 ? static_cast<double>(state_->counts.frames - 1) / elapsed : 0.0;
}

double Controller::FirstSlopes() const { return state_->first_slopes; }
double Controller::RecentSlopes() const { return state_->recent_slopes.Get(); }

}  // namespace quen::workbench
