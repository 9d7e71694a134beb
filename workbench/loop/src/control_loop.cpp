#include "workbench/loop/control_loop.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "workbench/loop/integrator.hpp"
#include "workbench/sensor/dimensions.hpp"
#include "workbench/sensor/displacements.hpp"
#include "workbench/sensor/matrices.hpp"

namespace quen::workbench {

struct ControlLoop::State {
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

  State(Camera& camera, std::size_t frames, const LoopOptions& options, Engine& engine)
      : camera(camera),
        options(options),
        m2s(M2sOf(camera)),
        used(UsedIndices(camera.RoisUsed())),
        centroiding(engine),
        integrator(camera, options.gain, options.leak),
        corrections(static_cast<std::size_t>(options.delay), NoModes()) {
    run.records.assign(frames, {NoModes(), NoModes(), NoModes()});
  }

  static Eigen::VectorXd NoModes() { return Eigen::VectorXd::Zero(kNumModes); }

  Camera& camera;
  LoopOptions options;
  Eigen::Map<const Matrix> m2s;
  std::vector<std::size_t> used;
  Engine& centroiding;
  Integrator integrator;
  DivergenceDetector detector;
  std::vector<Eigen::VectorXd> corrections;  ///< still to act, the next frame's first
  Displacements displacements;
  Eigen::VectorXd slopes = Eigen::VectorXd::Zero(kNumSlopes);  ///< that the residual makes
  LoopRun run;
  std::size_t frames = 0;  ///< so far
};

ControlLoop::ControlLoop(Camera& camera, std::size_t frames, const LoopOptions& options, Engine& engine)
    : state_(std::make_unique<State>(camera, frames, options, engine)) {
  camera.Use(options.exposure);
}

ControlLoop::~ControlLoop() = default;

void ControlLoop::Record(const Eigen::Ref<const Eigen::VectorXd>& disturbance) {
  FrameRecord& record = state_->run.records.at(state_->frames);
  record.disturbance = disturbance;
  record.correction = state_->corrections.front();
  record.residual = record.disturbance - record.correction;
  state_->run.has_diverged = state_->detector.HasDiverged(record);
  ++state_->frames;
}

void ControlLoop::Displace() {
  Multiply(state_->m2s, state_->run.records[state_->frames - 1].residual, state_->slopes);
  SetUsedDisplacements(state_->slopes, state_->used, state_->displacements);
}

void ControlLoop::Draw() { state_->camera.Draw(state_->displacements); }

void ControlLoop::Measure() { state_->camera.ComputeSlopes(state_->centroiding, kSlopeLimit, std::nullopt); }

void ControlLoop::Correct() {
  // The correction that has acted makes room for the newest one.
  std::vector<Eigen::VectorXd>& corrections = state_->corrections;
  state_->run.lost_spots += state_->integrator.Integrate(corrections.back(), corrections.front());
  std::rotate(corrections.begin(), corrections.begin() + 1, corrections.end());
}

bool ControlLoop::HasDiverged() const { return state_->run.has_diverged; }

LoopRun ControlLoop::Take() {
  state_->run.records.resize(state_->frames);
  return std::move(state_->run);
}

LoopRun RunLoop(Camera& camera, const Series& disturbance, const LoopOptions& options,
                const std::function<void()>& after_frame) {
  return RunLoop(camera, disturbance, options, *MakeEngine(options.engine, InputsFor(options.exposure.detector)),
                 after_frame);
}

LoopRun RunLoop(Camera& camera, const Series& disturbance, const LoopOptions& options, Engine& engine,
                const std::function<void()>& after_frame) {
  ControlLoop loop(camera, static_cast<std::size_t>(disturbance.rows()), options, engine);
  for (Eigen::Index frame = 0; frame < disturbance.rows() && !loop.HasDiverged(); ++frame) {
    loop.Record(disturbance.row(frame).transpose());
    loop.Displace();
    loop.Draw();
    loop.Measure();
    loop.Correct();
    after_frame();
  }
  return loop.Take();
}

LoopSummary SummaryOf(const LoopRun& run, int delay) {
  const std::size_t frames = run.records.size();
  return {Rms(run.records, &FrameRecord::residual, 0, std::min(static_cast<std::size_t>(delay), frames)),
          Rms(run.records, &FrameRecord::residual, frames / 2, frames),
          Rms(run.records, &FrameRecord::disturbance, frames / 2, frames)};
}

std::string FailureOf(const LoopRun& run, const LoopSummary& summary) {
  if (run.has_diverged) {
    return fmt::format(
        "the loop diverges: in frame {} its residual is {:.3g} rad RMS, more than {:g} times the disturbance; try a "
        "lower gain, or a shorter delay",
        run.records.size() - 1, run.records.back().residual.norm(), kDivergence);
  }
  if (summary.disturbance > 0.0 && !(summary.after < summary.disturbance)) {
    return "the loop did not converge: its residual is not below the disturbance; try a lower gain";
  }
  return "";
}

double Rms(const std::vector<FrameRecord>& records, Eigen::VectorXd FrameRecord::*vector, std::size_t first,
           std::size_t last) {
  double sum = 0.0;
  for (std::size_t frame = first; frame < last; ++frame) sum += (records[frame].*vector).squaredNorm();
  return std::sqrt(sum / static_cast<double>(last - first));
}

}  // namespace quen::workbench
