#include "tools/quen-shs/src/loop/disturbance.hpp"

#include <cmath>

namespace quen_shs {

Disturbance::Disturbance(const Eigen::VectorXd& variances, double strength, double correlation, std::uint32_t seed)
    : engine_(seed),
      correlation_(correlation),
      sigma_((variances * std::pow(strength, 5.0 / 3.0)).cwiseSqrt()),
      modes_(Draw()) {}

void Disturbance::Advance() { modes_ = correlation_ * modes_ + std::sqrt(1.0 - correlation_ * correlation_) * Draw(); }

Eigen::VectorXd Disturbance::Draw() {
  Eigen::VectorXd values(sigma_.size());
  for (Eigen::Index mode = 0; mode < values.size(); ++mode) values(mode) = sigma_(mode) * normal_(engine_);
  return values;
}

Series TurbulentSeries(int frames, const Eigen::VectorXd& variances, double strength, std::uint32_t seed) {
  Disturbance disturbance(variances, strength, kCorrelation, seed);
  Series series(frames, variances.size());
  for (Eigen::Index frame = 0; frame < frames; ++frame) {
    series.row(frame) = disturbance.Modes();
    disturbance.Advance();
  }
  return series;
}

}  // namespace quen_shs
