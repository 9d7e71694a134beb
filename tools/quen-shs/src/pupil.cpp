#include "tools/quen-shs/src/pupil.hpp"

#include <algorithm>
#include <numeric>

#include "shssim/shs_simulator.hpp"

namespace quen_shs {

int LitPixels(std::size_t i) {
  constexpr double kOuter = kPupilRadius;
  constexpr double kInner = kObscuration * kPupilRadius;
  int lit = 0;
  for (int y = FirstRow(i); y < FirstRow(i) + kPitch; ++y) {
    for (int x = FirstColumn(i); x < FirstColumn(i) + kPitch; ++x) {
      const double dx = x - kPupilCentreX;  // a multiple of one half, so symmetric sub-apertures tie exactly
      const double dy = y - kPupilCentreY;
      const double r2 = dx * dx + dy * dy;
      if (r2 >= kInner * kInner && r2 <= kOuter * kOuter) ++lit;
    }
  }
  return lit;
}

std::vector<std::uint8_t> UsedFlags() {
  std::vector<int> lit(quen::basesim::kNumRois);
  for (std::size_t i = 0; i < lit.size(); ++i) lit[i] = LitPixels(i);
  std::vector<std::size_t> by_light(lit.size());
  std::iota(by_light.begin(), by_light.end(), std::size_t{0});
  std::stable_sort(by_light.begin(), by_light.end(), [&](std::size_t a, std::size_t b) { return lit[a] > lit[b]; });

  std::vector<std::uint8_t> used(lit.size(), 0);
  for (std::size_t k = 0; k < quen::shssim::kNumRoisUsed; ++k) used[by_light[k]] = 1;
  return used;
}

}  // namespace quen_shs
