#include "centroiders/weighted_centre_of_gravity.hpp"

#include "centroiders/src/checks.hpp"
#include "centroiders/src/gaussian.hpp"
#include "shssim/spot.hpp"

namespace quen::centroiders {
namespace {

/// What undoes the weight's pull on a spot of the drawn width.
double GainForTheDrawnSpot(double weight_sigma) {
  const double weight_variance = weight_sigma * weight_sigma;
  return (shssim::kSpotSigma * shssim::kSpotSigma + weight_variance) / weight_variance;
}

}  // namespace

WeightedCentreOfGravity::WeightedCentreOfGravity(const WeightedCentreOfGravityConfig& config) {
  using Limits = WeightedCentreOfGravityLimits;
  RequireWithin("WeightedCentreOfGravity: fwhm", config.fwhm, Limits::kFwhm);
  if (config.gain) RequireWithin("WeightedCentreOfGravity: gain", *config.gain, Limits::kGain);
  weight_ = std::make_shared<const Gaussian>(config.fwhm);
  gain_ = config.gain.value_or(GainForTheDrawnSpot(weight_->Sigma()));
}

void WeightedCentreOfGravity::Measure(const Pixels& pixels, const Point& reference) {
  if (LacksReference(reference)) return;
  const common::simd::Level level = common::simd::Best();
  const WeightedSums sums =
      SumWeighted(level, pixels, weight_->Along(level, reference.x), weight_->Along(level, reference.y));
  flux = sums.light;
  if (!(sums.even > 0.0)) return;
  x = gain_ * sums.x / sums.even;
  y = gain_ * sums.y / sums.even;
}

}  // namespace quen::centroiders
