#include "workbench/serve/disturbance_source.hpp"

#include <cmath>

namespace quen::workbench {

double CorrelationOfWind(double wind, double diameter, double rate) { return std::exp(-wind / (diameter * rate)); }

double CorrelationAtRate(double rate) {
  constexpr double kRate = 1000.0;
  return rate == kRate ? kCorrelation : std::pow(kCorrelation, kRate / rate);
}

Eigen::Map<const Eigen::VectorXd> DisturbanceSource::Modes() const {
  if (turbulence_) return {turbulence_->Modes().data(), turbulence_->Modes().size()};
  return {series_.row(row_).data(), series_.cols()};
}

void DisturbanceSource::Advance() {
  if (turbulence_) return turbulence_->Advance();
  if (row_ + 1 < series_.rows()) {
    ++row_;
  } else if (at_end_ == AtEnd::kRepeat) {
    row_ = 0;
  } else {
    is_over_ = at_end_ == AtEnd::kStop;
  }
}

}  // namespace quen::workbench
