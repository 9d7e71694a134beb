#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "centroiders/brightest_pixels.hpp"
#include "centroiders/centre_of_gravity.hpp"
#include "centroiders/correlation.hpp"
#include "centroiders/gaussian_fit.hpp"
#include "centroiders/maximum_likelihood_fit.hpp"
#include "centroiders/quad_cell.hpp"
#include "centroiders/score.hpp"
#include "centroiders/weighted_centre_of_gravity.hpp"
#include "centroiders/windowed_centre_of_gravity.hpp"

namespace quen::centroiders {

/// The displacements where there is no light, and the reference column is NaN. An engine that tells of failures gives
/// NaN for both also where the reference is known.
enum class WithoutLight { kAxisNaN, kBothNaN, kZero, kFailure };

/// An engine to test, and how its results depend on the reference point.
struct EngineCase {
  std::string name;
  std::function<std::unique_ptr<Engine>()> make;
  bool needs_reference;  ///< a NaN reference coordinate leaves nothing to measure
  WithoutLight without_light = needs_reference ? WithoutLight::kBothNaN : WithoutLight::kAxisNaN;
  double rounding = 1e-10;  ///< of a displacement, pixels, and of the flux, relative
};

constexpr double kRoundingOfSingles = 1e-6;

inline std::ostream& operator<<(std::ostream& stream, const EngineCase& engine) { return stream << engine.name; }

inline std::vector<EngineCase> EngineCases() {
  return {
      {"CentreOfGravity", [] { return std::make_unique<CentreOfGravity>(); }, false},
      {"CentreOfGravitySubtracting",
       [] { return std::make_unique<CentreOfGravity>(CentreOfGravityConfig{.background = 1.5, .threshold = 20.25}); },
       false},
      {"CentreOfGravityCutting",
       [] {
         return std::make_unique<CentreOfGravity>(
             CentreOfGravityConfig{.threshold = 20.0, .thresholding = Thresholding::kCut});
       },
       false},
      {"WindowedOnTheBrightest", [] { return std::make_unique<WindowedCentreOfGravity>(); }, false},
      {"WindowedOnTheReference",
       [] {
         return std::make_unique<WindowedCentreOfGravity>(
             WindowedCentreOfGravityConfig{.around = WindowCentre::kReference});
       },
       true},
      {"Weighted", [] { return std::make_unique<WeightedCentreOfGravity>(); }, true},
      {"BrightestNumber", [] { return std::make_unique<BrightestPixels>(BrightestPixelsConfig{.number = 30}); }, false},
      {"BrightestFraction", [] { return std::make_unique<BrightestPixels>(BrightestPixelsConfig{.fraction = 0.07}); },
       false},
      {"QuadCell", [] { return std::make_unique<QuadCell>(); }, true},
      {"Correlation", [] { return std::make_unique<Correlation>(); }, false, WithoutLight::kZero},
      {"GaussianFit", [] { return std::make_unique<GaussianFit>(); }, false, WithoutLight::kZero},
      {"MaximumLikelihood", [] { return std::make_unique<MaximumLikelihoodFit>(); }, false, WithoutLight::kFailure,
       kRoundingOfSingles},
      {"MaximumLikelihoodOfOvals",
       [] {
         return std::make_unique<MaximumLikelihoodFit>(
             MaximumLikelihoodConfig{.shape = SpotShape::kOval, .background_model = SpotBackground::kSlope});
       },
       false, WithoutLight::kFailure, kRoundingOfSingles},
  };
}

}  // namespace quen::centroiders
