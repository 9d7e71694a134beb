#include "benchmarks/timed_loop.hpp"

#include <chrono>
#include <numeric>

#include "workbench/sensor/basis.hpp"

namespace quen_benchmarks {
namespace {

constexpr int kFrames = 200;

template <typename Action>
double Seconds(Action action) {
  const auto start = std::chrono::steady_clock::now();
  action();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

TimedLoop::TimedLoop(quen::workbench::Camera& camera, const std::string& engine)
    : camera_(camera),
      engine_(quen::workbench::MakeEngine(engine)),
      disturbance_(quen::workbench::TurbulentSeries(kFrames, quen::workbench::ZernikeBasis().variances,
                                                    /*d_over_r0=*/20.0, /*seed=*/1)) {}

std::array<double, TimedLoop::kParts.size()> TimedLoop::Iterate() {
  if (!loop_ || frame_ == kFrames) {
    loop_.emplace(camera_, std::size_t{kFrames}, options_, *engine_);
    frame_ = 0;
  }
  std::array<double, kParts.size()> seconds{};
  seconds[5] = Seconds([&] { loop_->Record(disturbance_.row(frame_++).transpose()); });
  seconds[1] = Seconds([&] { loop_->Displace(); });
  seconds[2] = Seconds([&] { loop_->Draw(); });
  seconds[3] = Seconds([&] { loop_->Measure(); });
  seconds[4] = Seconds([&] { loop_->Correct(); });
  seconds[0] = std::accumulate(seconds.begin() + 1, seconds.end(), 0.0);
  return seconds;
}

}  // namespace quen_benchmarks
