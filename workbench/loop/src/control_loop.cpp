#include "workbench/loop/control_loop.hpp"

#include <algorithm>
#include <cmath>
#include <deque>

#include "common/random/random.hpp"
#include "workbench/sensor/displacements.hpp"
#include "workbench/sensor/matrices.hpp"

namespace quen::workbench {
namespace {

using quen::basesim::kNumModes;

/// Tells when the residual is out of all proportion, NaN included.
class DivergenceDetector {
 public:
  bool HasDiverged(const FrameRecord& record) {
    largest_disturbance_ = std::max(largest_disturbance_, record.disturbance.norm());
    return !(record.residual.norm() <= kDivergence * largest_disturbance_);
  }

 private:
  double largest_disturbance_ = 1.0;
};

}  // namespace

LoopRun RunLoop(quen::shssim::ShsSimulator& simulator, const Series& disturbance, const LoopOptions& options,
                const std::function<void()>& after_frame) {
  const auto m2s = M2sOf(simulator);
  const auto cm = CmOf(simulator);
  const auto slopes = SlopesOf(simulator);
  const std::vector<std::size_t> used = UsedIndices(simulator.RoisUsed());
  const std::unique_ptr<Engine> centroiding = MakeEngine(options.engine);
  quen::common::random::detail::MersenneTwisterEngine().seed(options.seed);

  DivergenceDetector detector;
  Displacements displacements;
  // Corrections still to act, the next frame's first.
  std::deque<Eigen::VectorXd> corrections(static_cast<std::size_t>(options.delay), Eigen::VectorXd::Zero(kNumModes));
  LoopRun run;
  run.records.reserve(static_cast<std::size_t>(disturbance.rows()));

  for (Eigen::Index frame = 0; frame < disturbance.rows() && !run.has_diverged; ++frame) {
    const Eigen::VectorXd modes = disturbance.row(frame);
    const Eigen::VectorXd residual = modes - corrections.front();
    run.records.push_back({modes, corrections.front(), residual});
    run.has_diverged = detector.HasDiverged(run.records.back());

    SetUsedDisplacements(m2s * residual, used, displacements);
    simulator.ComputeFrame(displacements.x, displacements.y, options.noise, std::nullopt);
    simulator.ComputeSlopes(*centroiding, kSlopeLimit, std::nullopt);

    corrections.push_back((1.0 - options.leak) * corrections.back() + options.gain * (cm * slopes));
    corrections.pop_front();
    after_frame();
  }
  return run;
}

double Rms(const std::vector<FrameRecord>& records, Eigen::VectorXd FrameRecord::*vector, std::size_t first,
           std::size_t last) {
  double sum = 0.0;
  for (std::size_t frame = first; frame < last; ++frame) sum += (records[frame].*vector).squaredNorm();
  return std::sqrt(sum / static_cast<double>(last - first));
}

}  // namespace quen::workbench
