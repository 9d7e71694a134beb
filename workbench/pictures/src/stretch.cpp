#include "workbench/pictures/stretch.hpp"

#include <Eigen/Core>
#include <algorithm>
#include <cmath>

#include "common/statistics/quantile.hpp"
#include "shssim/spot.hpp"

namespace quen::workbench {
namespace {

/// A straight line through sorted samples against their rank, without the outliers at either end.
struct RankLine {
  double slope = 0.0;
  Eigen::Index good = 0;  ///< samples that were not rejected
};

/// Takes the neighbours of rejected samples out, too.
void Grow(Eigen::ArrayXd& weights, Eigen::Index reach) {
  const Eigen::ArrayXd before = weights;
  for (Eigen::Index k = 0; k < weights.size(); ++k) {
    const Eigen::Index first = std::max<Eigen::Index>(k - reach / 2, 0);
    const Eigen::Index last = std::min<Eigen::Index>(k + (reach - 1) / 2, weights.size() - 1);
    weights(k) = before.segment(first, last - first + 1).minCoeff();
  }
}

RankLine FitRankLine(const Eigen::ArrayXd& samples, Eigen::Index fewest) {
  constexpr int kIterations = 5;
  constexpr double kRejection = 2.5;  // standard deviations
  const Eigen::Index count = samples.size();
  const Eigen::ArrayXd rank = Eigen::ArrayXd::LinSpaced(count, 0.0, static_cast<double>(count - 1));
  Eigen::ArrayXd weights = Eigen::ArrayXd::Ones(count);
  RankLine line = {0.0, count};
  Eigen::Index before = count + 1;
  for (int iteration = 0; iteration < kIterations && line.good < before && line.good >= fewest; ++iteration) {
    const double total = weights.sum();
    const double mean_rank = (weights * rank).sum() / total;
    const double mean_sample = (weights * samples).sum() / total;
    const double spread = (weights * (rank - mean_rank).square()).sum();
    line.slope = (weights * (rank - mean_rank) * (samples - mean_sample)).sum() / spread;
    const Eigen::ArrayXd residual = samples - mean_sample - line.slope * (rank - mean_rank);
    const double mean = (weights * residual).sum() / total;
    const double deviation = std::sqrt((weights * (residual - mean).square()).sum() / total);
    weights = (residual.abs() > kRejection * deviation).select(0.0, weights);
    Grow(weights, std::max<Eigen::Index>(1, count / 100));
    before = line.good;
    line.good = static_cast<Eigen::Index>(weights.sum());
  }
  return line;
}

/// Of the pixels that have one.
std::vector<double> ValuesOf(const Frame& frame) {
  std::vector<double> values = frame.Values();
  std::erase_if(values, [](double value) { return std::isnan(value); });
  return values;
}

double Brightest(const Frame& frame) {
  double brightest = 1.0;
  for (const std::uint16_t pixel : frame.pixels) brightest = std::max(brightest, frame.Value(pixel));
  return brightest;
}

}  // namespace

double Stretch::Shade(double value) const {
  const double share = std::clamp((value - black) / (white - black), 0.0, 1.0);
  constexpr double kDepth = 1000.0;  // of the logarithm: the dimmest light that shows is this part of the brightest
  switch (curve) {
    case Curve::kSquareRoot:
      return std::sqrt(share);
    case Curve::kLogarithm:
      return std::log1p(kDepth * share) / std::log1p(kDepth);
    case Curve::kLinear:
      break;
  }
  return share;
}

Stretch SpotStretch() { return {0.0, quen::shssim::kSpotPeak, Stretch::Curve::kSquareRoot}; }

Stretch ZScaleStretch(const std::vector<double>& values) {
  constexpr std::size_t kSamples = 1000;
  constexpr double kContrast = 0.25;
  constexpr Eigen::Index kFewest = 5;
  const std::size_t stride = std::max<std::size_t>(1, values.size() / kSamples);
  std::vector<double> samples;
  for (std::size_t i = 0; i < values.size() && samples.size() < kSamples; i += stride) samples.push_back(values[i]);
  std::ranges::sort(samples);
  const auto count = static_cast<Eigen::Index>(samples.size());
  const Eigen::Index fewest = std::max(kFewest, count / 2);
  Stretch stretch = {samples.front(), samples.back(), Stretch::Curve::kLinear};
  const RankLine line = FitRankLine(Eigen::Map<const Eigen::ArrayXd>(samples.data(), count), fewest);
  if (line.good >= fewest) {
    const double slope = line.slope / kContrast;
    const Eigen::Index centre = (count - 1) / 2;
    const double median = (samples[(samples.size() - 1) / 2] + samples[samples.size() / 2]) / 2.0;
    stretch.black = std::max(stretch.black, median - static_cast<double>(centre - 1) * slope);
    stretch.white = std::min(stretch.white, median + static_cast<double>(count - centre) * slope);
  }
  return stretch;
}

Stretch ZScaleStretch(const Frame& frame) {
  Stretch stretch = ZScaleStretch(ValuesOf(frame));
  if (!(stretch.white > stretch.black)) stretch.white = stretch.black + 1.0;  // an even frame
  return stretch;
}

Stretch PercentileStretch(const Frame& frame) {
  std::vector<double> values = ValuesOf(frame);
  const double black = common::Quantile(values, 0.25);
  return {black, std::max(common::Quantile(values, 0.995), black + 1.0), Stretch::Curve::kSquareRoot};
}

Stretch LogarithmicStretch(const Frame& frame) { return {0.0, Brightest(frame), Stretch::Curve::kLogarithm}; }

Stretch StretchOfDrawn(const Frame& frame) { return frame.is_unsigned ? PercentileStretch(frame) : SpotStretch(); }

std::vector<std::string> StretchWords() { return {"auto", "log", "zscale", "percentile", "sqrt", "linear"}; }

std::string ResolvedStretch(const std::string& word, const Frame& frame) {
  if (word != "auto") return word;
  return frame.is_unsigned ? "percentile" : "log";
}

Stretch StretchByWord(const std::string& word, const Frame& frame) {
  if (word == "auto") return StretchByWord(ResolvedStretch(word, frame), frame);
  if (word == "zscale") return ZScaleStretch(frame);
  if (word == "percentile") return PercentileStretch(frame);
  if (word == "sqrt") return {0.0, Brightest(frame), Stretch::Curve::kSquareRoot};
  if (word == "linear") return {0.0, Brightest(frame), Stretch::Curve::kLinear};
  return LogarithmicStretch(frame);
}

}  // namespace quen::workbench
