#include "centroiders/score.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <numbers>
#include <optional>

#include "centroiders/src/checks.hpp"
#include "common/random/random.hpp"
#include "shssim/spot.hpp"

namespace quen::centroiders {
namespace {

using basesim::kNumRois;
using shssim::ShsSimulator;

constexpr double kFailure = 1.0;  // pixels

/// Sums over pairs of a true and a measured displacement.
class AxisSums {
 public:
  void Add(double truth, double measured) {
    const double error = measured - truth;
    count_ += 1.0;
    error_ += error;
    error_squared_ += error * error;
    truth_ += truth;
    truth_squared_ += truth * truth;
    product_ += truth * error;
  }

  [[nodiscard]] AxisScore Score() const {
    constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();
    if (count_ == 0.0) return {kUnknown, kUnknown, kUnknown, kUnknown};
    const double mean_error = error_ / count_;
    const double mean_truth = truth_ / count_;
    // Of the line error = slope · truth + offset; measured values have a slope that is larger by one.
    const double spread = truth_squared_ / count_ - mean_truth * mean_truth;
    const double slope = spread > 0.0 ? (product_ / count_ - mean_truth * mean_error) / spread : kUnknown;
    return {mean_error, std::sqrt(error_squared_ / count_), 1.0 + slope, mean_error - slope * mean_truth};
  }

 private:
  double count_ = 0.0;
  double error_ = 0.0;
  double error_squared_ = 0.0;
  double truth_ = 0.0;
  double truth_squared_ = 0.0;
  double product_ = 0.0;
};

/// What one engine has measured so far.
class Tally {
 public:
  void AddSpot(double true_x, double true_y, double x, double y, double flux) {
    spots_ += 1.0;
    const double error = std::max(std::abs(x - true_x), std::abs(y - true_y));
    if (!std::isfinite(x) || !std::isfinite(y) || !std::isfinite(flux) || error > kFailure) {
      failed_ += 1.0;
      return;
    }
    x_.Add(true_x, x);
    y_.Add(true_y, y);
    worst_ = std::max(worst_, error);
    const double flux_error = flux / shssim::kSpotFlux - 1.0;
    flux_error_ += flux_error;
    flux_error_squared_ += flux_error * flux_error;
  }

  void AddTime(double microseconds) { microseconds_ = std::min(microseconds_, microseconds); }

  [[nodiscard]] Score Total() const {
    constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();
    const double good = spots_ - failed_;
    const double failed = spots_ > 0.0 ? failed_ / spots_ : kUnknown;
    if (good == 0.0) return {x_.Score(), y_.Score(), kUnknown, kUnknown, kUnknown, failed, microseconds_};
    return {x_.Score(), y_.Score(),   worst_, flux_error_ / good, std::sqrt(flux_error_squared_ / good),
            failed,     microseconds_};
  }

 private:
  AxisSums x_;
  AxisSums y_;
  double spots_ = 0.0;
  double failed_ = 0.0;
  double worst_ = 0.0;
  double flux_error_ = 0.0;
  double flux_error_squared_ = 0.0;
  double microseconds_ = std::numeric_limits<double>::infinity();
};

/// The thread's generator, seeded, and as it was before when this object goes.
class SeededNoise {
 public:
  explicit SeededNoise(std::uint32_t seed) { common::random::detail::MersenneTwisterEngine().seed(seed); }
  ~SeededNoise() { common::random::detail::MersenneTwisterEngine() = before_; }
  SeededNoise(const SeededNoise&) = delete;
  SeededNoise& operator=(const SeededNoise&) = delete;
  SeededNoise(SeededNoise&&) = delete;
  SeededNoise& operator=(SeededNoise&&) = delete;

 private:
  std::mt19937 before_ = common::random::detail::MersenneTwisterEngine();
};

void Measure(ShsSimulator& simulator, Engine& engine, const std::vector<double>& dx, const std::vector<double>& dy,
             Tally& tally) {
  using Clock = std::chrono::steady_clock;
  const auto start = Clock::now();
  simulator.ComputeSlopes(engine, std::numeric_limits<double>::infinity(), std::nullopt);
  tally.AddTime(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
  const std::vector<std::uint8_t>& used = simulator.RoisUsed();
  std::size_t measured = 0;
  for (std::size_t i = 0; i < kNumRois && measured < shssim::kNumRoisUsed; ++i) {
    if (used.at(i) == 0) continue;
    tally.AddSpot(dx[i], dy[i], simulator.XSlopes()[i], simulator.YSlopes()[i], simulator.Flux()[i]);
    ++measured;
  }
}

}  // namespace

double ErrorBound(double noise) {
  const double variance = noise * noise / 3.0 + 1.0 / 12.0;
  const double information = shssim::kSpotPeak * shssim::kSpotPeak * std::numbers::pi / 2.0;
  return std::sqrt(variance / information);
}

std::vector<Score> ScoreEngines(ShsSimulator& simulator, const std::vector<std::reference_wrapper<Engine>>& engines,
                                const ScoreOptions& options) {
  RequireInRange("ScoreEngines: noise", options.noise, 0.0, 1e9);
  RequireInRange("ScoreEngines: range", options.range, 0.0, 100.0);
  RequireInRange("ScoreEngines: frames", static_cast<double>(options.frames), 1.0, 1e9);

  const SeededNoise noise(options.seed);
  std::mt19937 random(~options.seed);
  std::vector<double> dx(kNumRois);
  std::vector<double> dy(kNumRois);
  std::vector<Tally> tallies(engines.size());
  for (std::size_t frame = 0; frame < options.frames; ++frame) {
    common::random::FillUniform(random, -options.range, options.range, dx);
    common::random::FillUniform(random, -options.range, options.range, dy);
    simulator.ComputeFrame(dx, dy, options.noise, std::nullopt);
    for (std::size_t k = 0; k < engines.size(); ++k) Measure(simulator, engines[k], dx, dy, tallies[k]);
    if (options.after_frame) options.after_frame();
  }
  std::vector<Score> scores;
  scores.reserve(tallies.size());
  for (const Tally& tally : tallies) scores.push_back(tally.Total());
  return scores;
}

}  // namespace quen::centroiders
