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
  /// @param spot_flux  light of a whole spot
  explicit Tally(double spot_flux) : spot_flux_(spot_flux) {}

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
    const double flux_error = flux / spot_flux_ - 1.0;
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
  double spot_flux_;
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

/// Displacements of all spots, pixels.
struct Truth {
  std::vector<double> x = std::vector<double>(kNumRois);
  std::vector<double> y = std::vector<double>(kNumRois);
};

/// Indices of the sub-apertures that ComputeSlopes measures.
std::vector<std::size_t> MeasuredIndices(const ShsSimulator& simulator) {
  std::vector<std::size_t> indices;
  const std::vector<std::uint8_t>& used = simulator.RoisUsed();
  for (std::size_t i = 0; i < kNumRois && indices.size() < shssim::kNumRoisUsed; ++i) {
    if (used.at(i) != 0) indices.push_back(i);
  }
  return indices;
}

using Clock = std::chrono::steady_clock;

double MicrosecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

/// Where frames come from and how they are measured: the simulator's own.
class OwnFrames {
 public:
  OwnFrames(ShsSimulator& simulator, double noise)
      : simulator_(simulator), noise_(noise), measured_(MeasuredIndices(simulator)) {}

  void Draw(const Truth& truth, std::size_t /*frame*/) {
    simulator_.ComputeFrame(truth.x, truth.y, noise_, std::nullopt);
  }

  void Measure(Engine& engine, const Truth& truth, Tally& tally) {
    const auto start = Clock::now();
    simulator_.ComputeSlopes(engine, std::numeric_limits<double>::infinity(), std::nullopt);
    tally.AddTime(MicrosecondsSince(start));
    for (const std::size_t i : measured_) {
      tally.AddSpot(truth.x[i], truth.y[i], simulator_.XSlopes()[i], simulator_.YSlopes()[i], simulator_.Flux()[i]);
    }
  }

 private:
  ShsSimulator& simulator_;
  double noise_;
  std::vector<std::size_t> measured_;
};

/// Those that a detector exposes.
class ExposedFrames {
 public:
  ExposedFrames(ShsSimulator& simulator, detector::DetectorConfig detector, std::uint32_t seed)
      : simulator_(simulator), measured_(MeasuredIndices(simulator)), detector_(Seeded(std::move(detector), seed)) {}

  void Draw(const Truth& truth, std::size_t frame) {
    simulator_.ComputeFrame(truth.x, truth.y, 0.0, std::nullopt);
    detector_.Expose(simulator_.FrameValues(), frame, counts_);
  }

  void Measure(Engine& engine, const Truth& truth, Tally& tally) {
    const auto start = Clock::now();
    for (std::size_t k = 0; k < measured_.size(); ++k) {
      engine.Compute(counts_, simulator_.Rois()[measured_[k]]);
      spots_[k] = {engine.x, engine.y, engine.flux};
    }
    tally.AddTime(MicrosecondsSince(start));
    for (std::size_t k = 0; k < measured_.size(); ++k) {
      const std::size_t i = measured_[k];
      tally.AddSpot(truth.x[i], truth.y[i], spots_[k].x, spots_[k].y, spots_[k].flux);
    }
  }

 private:
  struct Spot {
    double x;
    double y;
    double flux;
  };

  static detector::Detector Seeded(detector::DetectorConfig config, std::uint32_t seed) {
    config.seed = seed;
    return detector::Detector(config);
  }

  ShsSimulator& simulator_;
  std::vector<std::size_t> measured_;
  std::vector<Spot> spots_ = std::vector<Spot>(measured_.size());
  detector::Detector detector_;
  std::vector<std::uint16_t> counts_ = std::vector<std::uint16_t>(detector::kPixels);
};

void CheckOptions(const ScoreOptions& options) {
  RequireWithin("ScoreEngines: noise", options.noise, ScoreLimits::kNoise);
  RequireWithin("ScoreEngines: range", options.range, ScoreLimits::kRange);
  RequireWithin("ScoreEngines: frames", static_cast<double>(options.frames), ScoreLimits::kFrames);
}

template <typename Frames>
std::vector<Score> ScoreOn(Frames frames, const std::vector<std::reference_wrapper<Engine>>& engines,
                           const ScoreOptions& options, double spot_flux) {
  const SeededNoise noise(options.seed);
  std::mt19937 random(~options.seed);
  Truth truth;
  std::vector<Tally> tallies(engines.size(), Tally(spot_flux));
  for (std::size_t frame = 0; frame < options.frames; ++frame) {
    common::random::FillUniform(random, -options.range, options.range, truth.x);
    common::random::FillUniform(random, -options.range, options.range, truth.y);
    frames.Draw(truth, frame);
    for (std::size_t k = 0; k < engines.size(); ++k) frames.Measure(engines[k], truth, tallies[k]);
    if (options.after_frame) options.after_frame();
  }
  std::vector<Score> scores;
  scores.reserve(tallies.size());
  for (const Tally& tally : tallies) scores.push_back(tally.Total());
  return scores;
}

/// Counts of a whole spot.
double SpotFlux(const detector::DetectorConfig& detector) {
  return shssim::kSpotFlux * detector.electrons_per_unit * detector.em_gain * detector.gain;
}

}  // namespace

double ErrorBound(double noise) {
  const double variance = noise * noise / 3.0 + 1.0 / 12.0;
  const double information = shssim::kSpotPeak * shssim::kSpotPeak * std::numbers::pi / 2.0;
  return std::sqrt(variance / information);
}

double ErrorBound(const detector::DetectorConfig& detector) {
  constexpr int kReach = 24;  // pixels: farther out a spot has no light
  const double excess = !detector.photon_noise ? 0.0 : detector.em_gain > 1.0 ? 2.0 : 1.0;
  const double read = detector.read_noise / detector.em_gain;
  const double rounding = 1.0 / (12.0 * std::pow(detector.gain * detector.em_gain, 2));
  double information = 0.0;
  for (int y = -kReach; y <= kReach; ++y) {
    for (int x = -kReach; x <= kReach; ++x) {
      const double light = detector.electrons_per_unit * shssim::kSpotPeak *
                           std::exp(-(x * x + y * y) / (2.0 * shssim::kSpotSigma * shssim::kSpotSigma));
      const double slope = light * x / (shssim::kSpotSigma * shssim::kSpotSigma);
      const double variance = excess * (light + detector.background + detector.dark) + read * read + rounding;
      information += slope * slope / variance;
    }
  }
  if (information == 0.0) return std::numeric_limits<double>::infinity();  // without light
  return 1.0 / std::sqrt(information);
}

std::vector<Score> ScoreEngines(ShsSimulator& simulator, const std::vector<std::reference_wrapper<Engine>>& engines,
                                const ScoreOptions& options) {
  CheckOptions(options);
  return ScoreOn(OwnFrames(simulator, options.noise), engines, options, shssim::kSpotFlux);
}

std::vector<Score> ScoreEngines(ShsSimulator& simulator, const std::vector<std::reference_wrapper<Engine>>& engines,
                                const ScoreOptions& options, const detector::DetectorConfig& detector) {
  CheckOptions(options);
  return ScoreOn(ExposedFrames(simulator, detector, options.seed), engines, options, SpotFlux(detector));
}

}  // namespace quen::centroiders
