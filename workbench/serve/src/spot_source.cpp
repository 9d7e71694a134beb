#include "workbench/serve/spot_source.hpp"

#include <algorithm>
#include <limits>

#include "workbench/sensor/dimensions.hpp"

namespace quen::workbench {

ResidualSpots::ResidualSpots(const quen::shssim::ShsSimulator& simulator, DisturbanceSource disturbance,
                             const CorrectionOptions& options, Clock& clock)
    : m2s_(M2sOf(simulator)),
      used_(UsedIndices(simulator.RoisUsed())),
      disturbance_(std::move(disturbance)),
      options_(options),
      acting_(static_cast<std::size_t>(options.delay) + 1, {Eigen::VectorXd::Zero(kNumModes)}),
      residual_(Eigen::VectorXd::Zero(kNumModes)),
      slopes_(Eigen::VectorXd::Zero(kNumSlopes)) {
  if (!options.stream.empty()) corrections_.emplace(options.stream, std::vector<std::uint32_t>{kNumModes}, clock);
}

void ResidualSpots::LatchCorrections() {
  is_latched_ = true;
  if (!corrections_) return;
  corrections_->Look();
  auto& [modes, number] = acting_.back();
  if (corrections_->IsLost() && options_.when_lost == WhenLost::kZero) {
    modes.setZero();
    number = 0;
    return;
  }
  std::ranges::copy(corrections_->Values(), modes.begin());
  number = corrections_->Number();
}

const Displacements& ResidualSpots::Latch() {
  LatchCorrections();
  residual_ = disturbance_.Modes() - Correction();
  slopes_.noalias() = m2s_ * residual_;
  SetUsedDisplacements(slopes_, used_, displacements_);
  return displacements_;
}

void ResidualSpots::Advance() {
  if (!is_latched_) LatchCorrections();  // of a frame that was skipped
  std::rotate(acting_.begin(), acting_.begin() + 1, acting_.end());
  is_latched_ = false;
  disturbance_.Advance();
}

std::string ResidualSpots::End() const {
  if (disturbance_.IsOver()) return "the disturbance has ended";
  if (corrections_ && corrections_->IsLost() && options_.when_lost == WhenLost::kStop) {
    return "the stream of corrections " + corrections_->Name() + " is gone";
  }
  return "";
}

StreamedSpots::StreamedSpots(const std::string& stream, Clock& clock)
    : stream_(stream, {kNumRois, 2}, clock),
      no_modes_(Eigen::VectorXd::Constant(kNumModes, std::numeric_limits<double>::quiet_NaN())) {}

const Displacements& StreamedSpots::Latch() {
  stream_.Look();
  const auto half = stream_.Values().begin() + static_cast<std::ptrdiff_t>(kNumRois);
  std::copy(stream_.Values().begin(), half, displacements_.x.begin());
  std::copy(half, stream_.Values().end(), displacements_.y.begin());
  return displacements_;
}

}  // namespace quen::workbench
