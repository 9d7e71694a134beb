#include "workbench/live/durations.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace quen::workbench {
namespace {

constexpr double kLeastDuration = 1e-7;  // seconds: the end of the first bin
constexpr double kMostDuration = 1e6;
constexpr double kBinRatio = 1.01;  // of a bin's ends

std::size_t BinOf(double seconds) {
  if (!(seconds > kLeastDuration)) return 0;
  return 1 +
         static_cast<std::size_t>(std::log(std::min(seconds, kMostDuration) / kLeastDuration) / std::log(kBinRatio));
}

/// The upper end of a bin.
double EndOf(std::size_t bin) { return kLeastDuration * std::pow(kBinRatio, static_cast<double>(bin)); }

/// Where a range of the histogram ends, seconds.
double EndOfBar(std::size_t bar) {
  constexpr double kFirst = 1e-6;
  constexpr std::array<double, 3> kEnds = {1.0, 2.0, 5.0};
  const std::size_t decade = bar / kEnds.size();
  return kFirst * kEnds.at(bar % kEnds.size()) * std::pow(10.0, static_cast<double>(decade));
}

}  // namespace

Durations::Durations() : bins_(BinOf(kMostDuration) + 1) {}

void Durations::Add(double seconds) {
  ++bins_[BinOf(seconds)];
  std::size_t bar = 0;
  while (bar + 1 < kBars && !(seconds < EndOfBar(bar))) ++bar;
  ++bars_.at(bar);
  worst_ = count_ == 0 ? seconds : std::max(worst_, seconds);
  least_ = count_ == 0 ? seconds : std::min(least_, seconds);
  ++count_;
}

double Durations::Quantile(double part) const {
  if (count_ == 0) return 0.0;
  auto left = static_cast<std::uint64_t>(part * static_cast<double>(count_ - 1));
  std::size_t bin = 0;
  while (left >= bins_[bin]) left -= bins_[bin++];
  return std::clamp(EndOf(bin), least_, worst_);
}

std::vector<Durations::Bar> Durations::Histogram() const {
  std::vector<Bar> bars;
  const auto is_used = [](std::uint64_t count) { return count > 0; };
  const auto first = static_cast<std::size_t>(std::ranges::find_if(bars_, is_used) - bars_.begin());
  for (std::size_t k = first; k < kBars; ++k) {
    if (std::none_of(bars_.begin() + static_cast<std::ptrdiff_t>(k), bars_.end(), is_used)) break;
    bars.push_back({k == 0 ? 0.0 : EndOfBar(k - 1),
                    k + 1 == kBars ? std::numeric_limits<double>::infinity() : EndOfBar(k), bars_.at(k)});
  }
  return bars;
}

}  // namespace quen::workbench
