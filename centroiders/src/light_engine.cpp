#include "centroiders/light_engine.hpp"

#include <cmath>
#include <gsl/assert>
#include <limits>
#include <numeric>
#include <utility>
#include <vector>

#include "centroiders/src/checks.hpp"
#include "centroiders/src/pixel_reader.hpp"
#include "common/statistics/quantile.hpp"

namespace quen::centroiders {
namespace {

using Pixel = std::numeric_limits<std::int16_t>;

double MeanOf(const std::vector<double>& values) {
  if (values.empty()) return 0.0;
  return std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
}

/// The region as a frame of its own.
image_processing::Roi AlignedToItsCorner(image_processing::Roi roi) {
  roi.x_ref -= roi.x_low;
  roi.y_ref -= roi.y_low;
  roi.x_low = roi.y_low = 0;
  roi.x_up = roi.x_max = roi.width;
  roi.y_up = roi.y_max = roi.height;
  return roi;
}

}  // namespace

class LightEngine::Light {
 public:
  explicit Light(const LightConfig& config)
      : reader_("LightEngine", config.reading), estimate_(config.background), quantile_(config.quantile) {
    RequireWithin("LightEngine: quantile", quantile_, LightLimits::kQuantile);
    sample_.reserve(Patch::kUsualPixels);
    pixels_.reserve(Patch::kUsualPixels);
  }

  /// @return  what the pixels are to be multiplied with to be light again
  double Read(gsl::span<const std::uint16_t> frame, const image_processing::Roi& roi) {
    reader_.Read(common::simd::Best(), frame, roi, patch_);
    const double background = Background();
    double scale = 1.0;
    while (!Convert(background, scale)) scale *= 0.5;
    return 1.0 / scale;
  }

  [[nodiscard]] const std::vector<std::uint16_t>& Pixels() const { return pixels_; }

 private:
  double Background() {
    if (estimate_ == BackgroundEstimate::kNone) return 0.0;
    sample_.clear();
    for (std::size_t y = 0; y < patch_.height; ++y) {
      for (std::size_t x = 0; x < patch_.width; ++x) {
        const bool is_outermost = x == 0 || y == 0 || x + 1 == patch_.width || y + 1 == patch_.height;
        if (!is_outermost && estimate_ != BackgroundEstimate::kQuantile) continue;
        const std::size_t k = x + patch_.stride * y;
        if (patch_.response[k] > 0.0) sample_.push_back(patch_.light[k]);
      }
    }
    if (estimate_ == BackgroundEstimate::kBorderMean) return MeanOf(sample_);
    if (estimate_ == BackgroundEstimate::kBorderMedian) return common::LowerMedian(sample_);
    return common::Quantile(sample_, quantile_);
  }

  /// @return  whether all pixels fit
  bool Convert(double background, double scale) {
    pixels_.clear();
    for (std::size_t y = 0; y < patch_.height; ++y) {
      for (std::size_t x = 0; x < patch_.width; ++x) {
        const double value = std::nearbyint(scale * (patch_.light[x + patch_.stride * y] - background));
        if (!(value >= Pixel::min() && value <= Pixel::max())) return false;
        pixels_.push_back(static_cast<std::uint16_t>(static_cast<std::int16_t>(value)));
      }
    }
    return true;
  }

  PixelReader reader_;
  BackgroundEstimate estimate_;
  double quantile_;
  Patch patch_;
  std::vector<double> sample_;
  std::vector<std::uint16_t> pixels_;
};

LightEngine::LightEngine(const LightConfig& config, std::unique_ptr<Engine> engine)
    : light_(std::make_unique<Light>(config)), engine_(std::move(engine)) {
  Expects(engine_ != nullptr);
}
LightEngine::LightEngine(LightEngine&&) noexcept = default;
LightEngine& LightEngine::operator=(LightEngine&&) noexcept = default;
LightEngine::~LightEngine() = default;

void LightEngine::Compute(gsl::span<const std::uint16_t> frame, const image_processing::Roi& roi) {
  const double scale = light_->Read(frame, roi);
  engine_->Compute(light_->Pixels(), AlignedToItsCorner(roi));
  flux = scale * engine_->flux;
  x = engine_->x;
  y = engine_->y;
}

}  // namespace quen::centroiders
