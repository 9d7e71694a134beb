#include "centroiders/centre_of_gravity.hpp"

#include <cmath>

#include "centroiders/src/checks.hpp"
#include "centroiders/src/moments.hpp"

namespace quen::centroiders {

CentreOfGravity::CentreOfGravity(const CentreOfGravityConfig& config) : cut_(kEveryPixel), zero_(config.background) {
  RequireWithin("CentreOfGravity: background", config.background, CentreOfGravityLimits::kBackground);
  if (!config.threshold) return;
  RequireWithin("CentreOfGravity: threshold", *config.threshold, CentreOfGravityLimits::kThreshold);
  // Pixels are whole numbers: one is above a limit when it is above the limit's whole part.
  const double limit = config.background + *config.threshold;
  cut_ = static_cast<std::int32_t>(std::floor(limit));
  if (config.thresholding == Thresholding::kSubtract) zero_ = limit;
}

void CentreOfGravity::Measure(const Pixels& pixels, const Point& reference) {
  const Moments moments = MomentsAbove(common::simd::Best(), pixels, cut_);
  const Centroid centroid = CentroidOf(moments, zero_, reference);
  flux = centroid.flux;
  x = centroid.x - reference.x;
  y = centroid.y - reference.y;
}

}  // namespace quen::centroiders
