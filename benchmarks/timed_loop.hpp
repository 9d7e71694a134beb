#pragma once

#include <array>
#include <memory>
#include <optional>
#include <string>

#include "workbench/loop/control_loop.hpp"

namespace quen_benchmarks {

/// The closed loop of the host tool, each part of whose iterations is timed where it runs: after the others, with the
/// caches as they leave them. Begins anew when its disturbance ends.
class TimedLoop {
 public:
  /// The first is the whole, and the sum of the others.
  static constexpr std::array<const char*, 6> kParts = {
      "an iteration", "disturbance to displacements", "frame", "centroids", "control matrix", "bookkeeping"};

  TimedLoop(quen::workbench::Camera& camera, const std::string& engine);

  /// One iteration, and how long its parts take, in seconds.
  std::array<double, kParts.size()> Iterate();

 private:
  quen::workbench::Camera& camera_;
  quen::workbench::LoopOptions options_;
  std::unique_ptr<quen::workbench::Engine> engine_;
  quen::workbench::Series disturbance_;
  Eigen::Index frame_ = 0;
  std::optional<quen::workbench::ControlLoop> loop_;
};

}  // namespace quen_benchmarks
