#include "workbench/loop/disturbance.hpp"

#include <fmt/format.h>

#include <cmath>
#include <stdexcept>

namespace quen::workbench {

Disturbance::Disturbance(const Eigen::VectorXd& variances, double d_over_r0, double correlation, std::uint32_t seed)
    : generator_(seed),
      correlation_(correlation),
      sigma_((variances * std::pow(d_over_r0, 5.0 / 3.0)).cwiseSqrt()),
      drawn_(sigma_.size()),
      modes_(Draw()) {}

void Disturbance::Advance() { modes_ = correlation_ * modes_ + std::sqrt(1.0 - correlation_ * correlation_) * Draw(); }

const Eigen::VectorXd& Disturbance::Draw() {
  for (Eigen::Index mode = 0; mode < drawn_.size(); ++mode) drawn_(mode) = sigma_(mode) * normal_(generator_);
  return drawn_;
}

void RequireModerate(const Series& series, const std::string& source) {
  for (Eigen::Index frame = 0; frame < series.rows(); ++frame) {
    for (Eigen::Index mode = 0; mode < series.cols(); ++mode) {
      if (std::abs(series(frame, mode)) <= kLargestMode) continue;
      throw std::runtime_error(
          fmt::format("{}: expected modes up to {:g} radians, found {:g} in frame {}, mode {} (counted from 0)", source,
                      kLargestMode, series(frame, mode), frame, mode));
    }
  }
}

Series TurbulentSeries(int frames, const Eigen::VectorXd& variances, double d_over_r0, std::uint32_t seed) {
  Disturbance disturbance(variances, d_over_r0, kCorrelation, seed);
  Series series(frames, variances.size());
  for (Eigen::Index frame = 0; frame < frames; ++frame) {
    series.row(frame) = disturbance.Modes();
    disturbance.Advance();
  }
  return series;
}

}  // namespace quen::workbench
