#include "tools/quen-shs/src/disturbance.hpp"

#include <cmath>

#include "basesim/base_simulator.hpp"
#include "tools/quen-shs/src/zernike.hpp"

namespace quen_shs {
namespace {

Eigen::VectorXd StandardDeviations(double strength) {
  Eigen::VectorXd sigma(quen::basesim::kNumModes);
  for (Eigen::Index mode = 0; mode < sigma.size(); ++mode) {
    const double variance = KolmogorovVariance(2 + static_cast<int>(mode)) * std::pow(strength, 5.0 / 3.0);
    sigma(mode) = std::sqrt(variance);
  }
  return sigma;
}

}  // namespace

Disturbance::Disturbance(double strength, double correlation, std::uint32_t seed)
    : engine_(seed), correlation_(correlation), sigma_(StandardDeviations(strength)), modes_(Draw()) {}

void Disturbance::Advance() { modes_ = correlation_ * modes_ + std::sqrt(1.0 - correlation_ * correlation_) * Draw(); }

Eigen::VectorXd Disturbance::Draw() {
  Eigen::VectorXd values(sigma_.size());
  for (Eigen::Index mode = 0; mode < values.size(); ++mode) values(mode) = sigma_(mode) * normal_(engine_);
  return values;
}

}  // namespace quen_shs
