#include "tools/quen-shs/src/control_loop.hpp"

#include <cmath>
#include <deque>

#include "common/random/random.hpp"
#include "tools/quen-shs/src/calibration.hpp"
#include "tools/quen-shs/src/disturbance.hpp"

namespace quen_shs {
namespace {

using quen::basesim::kNumModes;
using quen::basesim::kNumRois;
using quen::basesim::kNumSlopes;
using quen::shssim::kNumRoisUsed;

/// Displacements of all spots, in the order of the sub-apertures.
struct Displacements {
  std::vector<double> x = std::vector<double>(kNumRois, 0.0);
  std::vector<double> y = std::vector<double>(kNumRois, 0.0);
};

/// Spreads a slope vector (y block, then x block) over the used sub-apertures.
void Unpack(const Eigen::VectorXd& slopes, const std::vector<std::uint8_t>& used, Displacements& displacements) {
  Eigen::Index k = 0;
  for (std::size_t i = 0; i < kNumRois && k < static_cast<Eigen::Index>(kNumRoisUsed); ++i) {
    if (used.at(i) == 0) continue;
    displacements.y[i] = slopes(k);
    displacements.x[i] = slopes(static_cast<Eigen::Index>(kNumRoisUsed) + k);
    ++k;
  }
}

}  // namespace

std::vector<FrameRecord> RunLoop(quen::shssim::ShsSimulator& simulator, const LoopOptions& options,
                                 const LastFrameFiles& files, const std::function<void(int)>& after_frame) {
  const Eigen::Map<const Matrix> m2s(simulator.M2s().data(), kNumSlopes, kNumModes);
  const Eigen::Map<const Matrix> cm(simulator.Cm().data(), kNumModes, kNumSlopes);
  const Eigen::Map<const Eigen::VectorXd> slopes(simulator.Slopes().data(), kNumSlopes);

  Disturbance disturbance(options.strength, kCorrelation, options.seed);
  quen::common::random::detail::MersenneTwisterEngine().seed(options.seed);
  const std::unique_ptr<Engine> centroiding = MakeEngine(options.engine);
  Displacements displacements;
  // Corrections still to act, the next frame's first.
  std::deque<Eigen::VectorXd> corrections(static_cast<std::size_t>(options.delay), Eigen::VectorXd::Zero(kNumModes));
  std::vector<FrameRecord> records;
  records.reserve(static_cast<std::size_t>(options.frames));

  for (int frame = 0; frame < options.frames; ++frame) {
    const bool last = frame + 1 == options.frames;
    const Eigen::VectorXd residual = disturbance.Modes() - corrections.front();
    records.push_back({disturbance.Modes(), corrections.front(), residual});

    Unpack(m2s * residual, simulator.RoisUsed(), displacements);
    simulator.ComputeFrame(displacements.x, displacements.y, options.noise,
                           last ? std::optional(files.frame) : std::nullopt);
    simulator.ComputeSlopes(*centroiding, kSlopeLimit, last ? std::optional(files.slopes) : std::nullopt);

    corrections.push_back(corrections.back() + options.gain * (cm * slopes));
    corrections.pop_front();
    disturbance.Advance();
    after_frame(frame + 1);
  }
  return records;
}

double Rms(const std::vector<FrameRecord>& records, Eigen::VectorXd FrameRecord::*vector, std::size_t first,
           std::size_t last) {
  double sum = 0.0;
  for (std::size_t frame = first; frame < last; ++frame) sum += (records[frame].*vector).squaredNorm();
  return std::sqrt(sum / static_cast<double>(last - first));
}

}  // namespace quen_shs
