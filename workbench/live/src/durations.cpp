#include "workbench/live/durations.hpp"

#include <algorithm>
#include <cmath>

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

}  // namespace

Durations::Durations() : bins_(BinOf(kMostDuration) + 1) {}

void Durations::Add(double seconds) {
  ++bins_[BinOf(seconds)];
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

}  // namespace quen::workbench
