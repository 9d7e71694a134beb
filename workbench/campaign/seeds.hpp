#pragma once

#include <cstdint>

namespace quen::workbench {

/// More runs than there are seeds would not all differ.
inline constexpr std::uint64_t kSeeds = std::uint64_t{1} << 32U;

/// The seed of a run: for one campaign, a bijection of the numbers of 32 bits, so that no two runs have the same seed.
///
/// It is a Feistel network over the halves of the run's number,
///
///     (l, r) → (r, l ⊕ f(key, r)),
///
/// four times over, where the key is of the campaign's seed and the round. Whatever f is, a round can be undone, for
/// (r, l ⊕ f(r)) tells r, then f(r), then l; so the network is a bijection. f is the finalizer of SplitMix64 (Steele et
/// al. 2014), cut to 16 bits: a bit of the key or of r changes half of its bits. Campaigns of different seeds go
/// through the seeds in orders that have nothing to do with each other.
///
/// @param run  below kSeeds
constexpr std::uint32_t SeedOfRun(std::uint32_t campaign_seed, std::uint64_t run) {
  constexpr auto mix = [](std::uint64_t value) {
    value = (value ^ (value >> 30U)) * 0xBF58476D1CE4E5B9U;
    value = (value ^ (value >> 27U)) * 0x94D049BB133111EBU;
    return value ^ (value >> 31U);
  };
  constexpr std::uint64_t kGolden = 0x9E3779B97F4A7C15U;
  auto left = static_cast<std::uint16_t>(run >> 16U);
  auto right = static_cast<std::uint16_t>(run);
  for (std::uint64_t round = 1; round <= 4; ++round) {
    const std::uint64_t key = mix(campaign_seed + round * kGolden);
    const auto before = right;
    right = static_cast<std::uint16_t>(left ^ mix(key ^ before));
    left = before;
  }
  return std::uint32_t{left} << 16U | right;
}

}  // namespace quen::workbench
