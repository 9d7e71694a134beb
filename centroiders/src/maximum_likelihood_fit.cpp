#include "centroiders/maximum_likelihood_fit.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <optional>

#include "centroiders/src/checks.hpp"
#include "centroiders/src/pixel_reader.hpp"
#include "centroiders/src/scoring_step.hpp"
#include "centroiders/src/smoothed_maximum.hpp"
#include "centroiders/src/spot_estimate.hpp"
#include "centroiders/src/spot_moments.hpp"

namespace quen::centroiders {
namespace {

MaximumLikelihoodConfig Checked(const MaximumLikelihoodConfig& config) {
  using Limits = MaximumLikelihoodLimits;
  RequireWithin("MaximumLikelihoodFit: gain", config.gain, Limits::kGain);
  RequireWithin("MaximumLikelihoodFit: read_noise", config.read_noise, Limits::kReadNoise);
  RequireWithin("MaximumLikelihoodFit: fwhm", config.fwhm, Limits::kFwhm);
  RequireWithin("MaximumLikelihoodFit: background", config.background, Limits::kBackground);
  RequireWithin("MaximumLikelihoodFit: steps", config.steps, Limits::kSteps);
  RequireWithin("MaximumLikelihoodFit: tolerance", config.tolerance, Limits::kTolerance);
  RequireWithin("MaximumLikelihoodFit: significance", config.significance, Limits::kSignificance);
  return config;
}

/// The least tolerance that sums in single precision are for, pixels: their steps come to rest at some 10⁻⁶.
constexpr double kTolerableInSingle = 1e-4;

constexpr double kOutside = 0.5;  // how far a centre may be from the centres of the outermost pixels

/// What coefficients of g, of g·u, g·v and of those of the shape add to a spot.
Correction CorrectionOf(double height, const double* c, SpotShape shape) {
  Correction correction = {height, {c[0], c[1]}, {0.0, 0.0, 0.0}};
  if (shape == SpotShape::kRound) correction.square = {c[2], 0.0, c[2]};
  if (shape == SpotShape::kOval) correction.square = {c[2], 0.5 * c[3], c[4]};
  return correction;
}

/// No farther than kOutside allows.
Point Moved(const Point& centre, const Point& change, const Patch& patch) {
  const auto moved = [](double to, std::size_t size) {
    return std::clamp(to, -kOutside, static_cast<double>(size - 1) + kOutside);
  };
  return {moved(centre.x + change.x, patch.width), moved(centre.y + change.y, patch.height)};
}

bool IsPossible(const Symmetric& p, const Patch& patch) {
  constexpr double kNarrowest = 0.3;  // deviation, pixels
  const auto widest = static_cast<double>(std::max(patch.width, patch.height));
  return p.LargestEigenvalue() <= 1.0 / (kNarrowest * kNarrowest) && p.LeastEigenvalue() >= 1.0 / (widest * widest);
}

}  // namespace

/// The engine's parts. All light is in counts, in which the variance of a pixel is gain · (μ + noise).
class MaximumLikelihoodFit::Fit {
 public:
  explicit Fit(const MaximumLikelihoodConfig& config)
      : reader_("MaximumLikelihoodFit", config.reading),
        config_(Checked(config)),
        noise_(config_.gain * config_.read_noise * config_.read_noise + 1.0 / (12.0 * config_.gain)),
        terms_(config_.shape, config_.background_model) {
    config_.reading = {};  // which the reader has
  }

  /// What is expected of the region after the last step; nothing where the fit fails.
  std::optional<SpotModel> Measure(gsl::span<const std::uint16_t> frame, const image_processing::Roi& roi) {
    constexpr std::size_t kFewest = 3;  // columns or rows
    const common::simd::Level level = common::simd::Best();
    reader_.Read(level, frame, roi, patch_);
    if (std::min(patch_.width, patch_.height) < kFewest) return std::nullopt;
    Round(level, patch_, single_);
    SpotModel model = Start(level);
    const Extent& extent = terms_.SumsNeeded();
    if (!TakeStep(SumBeforeTheSpot(level, patch_, model, extent), model)) return std::nullopt;
    const bool is_single = config_.tolerance >= kTolerableInSingle;
    for (int step = 1; step < config_.steps; ++step) {
      const std::optional<Step> taken =
          TakeStep(is_single ? SumSpotMoments(level, single_, model, noise_, extent)
                             : SumSpotMoments<double>(level, patch_, model, noise_, extent),
                   model);
      if (!taken) return std::nullopt;
      if (!(taken->length <= config_.tolerance)) continue;
      if (model.height < config_.significance * taken->height_error) return std::nullopt;
      return model;
    }
    return std::nullopt;
  }

 private:
  struct Step {
    double length;        ///< by which it would move the centre or a deviation, without limits; pixels
    double height_error;  ///< standard error of the height
  };

  SpotModel Start(common::simd::Level level) {
    const double sigma = config_.fwhm / kFwhmPerSigma;
    const auto side = 2 * static_cast<std::size_t>(std::lround(sigma)) + 1;
    const bool is_sloping = config_.background_model == SpotBackground::kSlope;
    SpotModel model{};
    model.centre = start_.Find(level, single_, side, is_sloping);
    model.p = {1.0 / (sigma * sigma), 0.0, 1.0 / (sigma * sigma)};
    if (config_.background_model == SpotBackground::kGiven) model.background = config_.gain * config_.background;
    return model;
  }

  /// @return  nothing where the pixels do not tell what step to take, and where it ends at what is no spot
  std::optional<Step> TakeStep(const SpotMoments& sums, SpotModel& model) const {
    const std::optional<Coefficients> solution = Solve(sums, terms_);
    if (!solution) return std::nullopt;
    const double* const c = solution->of.data();
    const std::optional<SpotEstimate> spot =
        EstimateSpot(model.height, model.p, CorrectionOf(c[terms_.Height()], c, config_.shape), config_.shape);
    if (!spot) return std::nullopt;
    const double deviation = 1.0 / std::sqrt(model.p.LeastEigenvalue());
    const double move = std::max(std::abs(spot->centre.x), std::abs(spot->centre.y)) / spot->part;
    const double length = std::max(move, 0.5 * spot->change * deviation);

    const Point before = model.centre;
    model.centre = Moved(before, spot->centre, patch_);
    model.height = spot->height;
    model.p = spot->p;
    const double* const of_background = c + terms_.FirstOfBackground();
    if (config_.background_model != SpotBackground::kGiven) model.background += spot->part * of_background[0];
    if (config_.background_model == SpotBackground::kSlope) {
      model.slope_x += spot->part * of_background[1];
      model.slope_y += spot->part * of_background[2];
      model.background += model.slope_x * (model.centre.x - before.x) + model.slope_y * (model.centre.y - before.y);
    }
    if (!IsPossible(model.p, patch_)) return std::nullopt;
    return Step{length, std::sqrt(config_.gain * solution->height_variance)};
  }

  PixelReader reader_;
  MaximumLikelihoodConfig config_;
  double noise_;
  Terms terms_;
  Patch patch_;
  SinglePatch single_;
  SmoothedMaximum start_;
};

MaximumLikelihoodFit::MaximumLikelihoodFit(const MaximumLikelihoodConfig& config)
    : fit_(std::make_unique<Fit>(config)) {}
MaximumLikelihoodFit::MaximumLikelihoodFit(MaximumLikelihoodFit&&) noexcept = default;
MaximumLikelihoodFit& MaximumLikelihoodFit::operator=(MaximumLikelihoodFit&&) noexcept = default;
MaximumLikelihoodFit::~MaximumLikelihoodFit() = default;

void MaximumLikelihoodFit::Compute(gsl::span<const std::uint16_t> frame, const image_processing::Roi& roi) {
  flux = x = y = 0.0;
  if (PixelsOf(frame, roi).IsEmpty()) return;
  const std::optional<SpotModel> spot = fit_->Measure(frame, roi);
  if (!spot) {
    x = y = std::numeric_limits<double>::quiet_NaN();
    return;
  }
  const Point reference = ReferenceOf(roi);
  flux = 2.0 * std::numbers::pi * spot->height / std::sqrt(spot->p.Determinant());
  x = spot->centre.x - reference.x;
  y = spot->centre.y - reference.y;
}

}  // namespace quen::centroiders
