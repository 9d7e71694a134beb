#include "workbench/serve/pixel_faults.hpp"

#include <algorithm>
#include <cmath>
#include <random>
#include <utility>

#include "workbench/sensor/dimensions.hpp"

namespace quen::workbench {
namespace {

constexpr std::size_t kFramePixels = kFrameWidth * kFrameHeight;

/// A shift as one toward higher places.
std::size_t Forward(double shift, std::size_t size) {
  const auto length = static_cast<std::int64_t>(size);
  return static_cast<std::size_t>((static_cast<std::int64_t>(shift) + length) % length);
}

}  // namespace

PixelFaults::PixelFaults(const PixelLimits& range)
    : range_(range), last_(kFramePixels), next_(kFramePixels), shifted_(kFramePixels) {}

gsl::span<const std::uint16_t> PixelFaults::Apply(gsl::span<const std::uint16_t> drawn, std::span<const Fault> faults,
                                                  std::uint64_t number) {
  std::ranges::copy(drawn, next_.begin());
  for (const Fault& fault : faults) Apply(fault, number);
  std::swap(last_, next_);
  return last_;
}

void PixelFaults::Apply(const Fault& fault, std::uint64_t number) {
  switch (fault.kind) {
    case FaultKind::kSaturate:
      std::ranges::fill(next_, range_.highest);
      return;
    case FaultKind::kStuck:
      return KeepRegion(fault);
    case FaultKind::kShift:
      return Shift(fault);
    case FaultKind::kCosmic:
      return AddCosmics(fault, number);
    case FaultKind::kBitflip: {
      std::uint16_t& pixel = next_.at(fault.Count("x") + kFrameWidth * fault.Count("y"));
      pixel = static_cast<std::uint16_t>(pixel ^ (1U << fault.Count("bit")));
      return;
    }
    case FaultKind::kTear: {
      const auto first_old = static_cast<std::ptrdiff_t>(kFrameWidth * fault.Count("rows"));
      std::copy(last_.begin() + first_old, last_.end(), next_.begin() + first_old);
      return;
    }
    case FaultKind::kFreeze:
    case FaultKind::kRepeat:
      next_ = last_;
      return;
    default:
      return;
  }
}

void PixelFaults::AddCosmics(const Fault& fault, std::uint64_t number) {
  std::mt19937_64 generator(number);
  std::uniform_int_distribution<std::size_t> anywhere(0, kFramePixels - 1);
  const double amount = fault.Value("amount") * range_.units_per_cosmic;
  for (std::uint64_t hit = 0; hit < fault.Count("hits"); ++hit) {
    std::uint16_t& pixel = next_[anywhere(generator)];
    const double value = range_.is_signed ? static_cast<std::int16_t>(pixel) : pixel;
    pixel = static_cast<std::uint16_t>(
        static_cast<std::int32_t>(std::min(std::round(value + amount), static_cast<double>(range_.highest))));
  }
}

void PixelFaults::Shift(const Fault& fault) {
  const std::size_t rows = Forward(fault.Value("rows"), kFrameHeight);
  const std::size_t columns = Forward(fault.Value("columns"), kFrameWidth);
  for (std::size_t row = 0; row < kFrameHeight; ++row) {
    const auto from = next_.begin() + static_cast<std::ptrdiff_t>(kFrameWidth * row);
    const auto to = shifted_.begin() + static_cast<std::ptrdiff_t>(kFrameWidth * ((row + rows) % kFrameHeight));
    std::rotate_copy(from, from + static_cast<std::ptrdiff_t>((kFrameWidth - columns) % kFrameWidth),
                     from + static_cast<std::ptrdiff_t>(kFrameWidth), to);
  }
  std::swap(next_, shifted_);
}

void PixelFaults::KeepRegion(const Fault& fault) {
  const auto width = static_cast<std::ptrdiff_t>(fault.Count("width"));
  for (std::uint64_t row = 0; row < fault.Count("height"); ++row) {
    const auto at = static_cast<std::ptrdiff_t>(fault.Count("x") + kFrameWidth * (fault.Count("y") + row));
    std::copy(last_.begin() + at, last_.begin() + at + width, next_.begin() + at);
  }
}

}  // namespace quen::workbench
