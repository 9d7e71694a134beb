#include "workbench/check/src/list_beginnings.hpp"

#include <algorithm>
#include <cstdlib>

#include "workbench/check/src/check_inverse.hpp"
#include "workbench/check/src/in_place.hpp"
#include "workbench/check/src/slide.hpp"

namespace quen::workbench {
namespace {

constexpr int kFarthest = 3;

/// Slopes whose lists begin so many places further on, from the first used sub-aperture on.
Fields FromTheFirst(const Fields& slopes, int further_on) {
  return PutRight(slopes, kFurtherOn, OrdersFurtherOn(further_on, static_cast<std::size_t>(slopes.rows()) / 2));
}

/// Of a matrix's lists; 0 if they begin where they should, or something else explains them better.
int BeginningOf(const Fields& slopes, const SlopeSpace& gradients, const Lattice& lattice,
                const std::vector<std::size_t>& used, const std::vector<ListOrder>& orders) {
  constexpr double kLeast = 0.04;    // of what is no gradient; of good calibrations up to 0.002
  constexpr double kClearly = 0.95;  // of what another order leaves
  constexpr double kByChance = 0.02;
  const Fields sample = Sample(slopes);
  const double rest = 1.0 - gradients.Share(sample);
  double least = (1.0 - kLeast) * rest;
  int best = 0;
  for (int further_on = -kFarthest; further_on <= kFarthest; ++further_on) {
    const double rest_so = 1.0 - gradients.Share(FromTheFirst(sample, further_on));
    if (rest_so >= least) continue;
    least = rest_so;
    best = further_on;
  }
  if (best == 0) return 0;
  for (std::size_t order = 1; order < orders.size(); ++order) {
    const Fields in_order = PutRight(sample, Layout{.order = order}, orders);
    if (least > kClearly * (1.0 - gradients.Share(in_order))) return 0;
  }
  const std::vector<Slide> slides = FindSlides(slopes, gradients, lattice, used);
  const Fields slid = Sample(slopes, kSumsSlid);
  const auto rest_of = [&](const Fields& fields) { return 1.0 - gradients.Share(fields); };
  const double gain = 1.0 - rest_of(FromTheFirst(slid, best)) / rest_of(slid);
  if (!slides.empty() && slides.front().gain > gain + kByChance) return 0;
  const Fields right = FromTheFirst(slopes, best);
  if (ShareInPlace(gradients, right) < kInPlaceWithNoise) return 0;
  return UnevennessOfRest(right, gradients, lattice, used) > kClearlyInPlace ? best : 0;
}

}  // namespace

ListBeginnings FindListBeginnings(const Matrix& m2s, const Matrix& cm, const SlopeSpace& gradients,
                                  const Lattice& lattice, const std::vector<std::size_t>& used,
                                  const std::vector<ListOrder>& orders) {
  constexpr double kSurely = 1e-3;  // what an inverse gives back of other modes
  constexpr double kClearly = 0.5;  // of what it does as they stand
  int of_m2s = BeginningOf(m2s, gradients, lattice, used, orders);
  const auto unclear = [&](const Fields& slopes) { return GivenBack(cm * slopes).Unclear(); };
  double least = kClearly * unclear(m2s);
  int apart = 0;  // M2S begins so many further on than CM
  if (least > kSurely) {
    for (int further_on = -kFarthest; further_on <= kFarthest; ++further_on) {
      if (std::abs(of_m2s - further_on) > kFarthest) continue;
      const GivenBack modes(cm * FromTheFirst(m2s, further_on));
      if (!modes.AreRight() || modes.Unclear() >= least) continue;
      least = modes.Unclear();
      apart = further_on;
    }
  }
  if (apart == 0) return {of_m2s, of_m2s};
  for (std::size_t order = 1; order < orders.size(); ++order) {
    if (unclear(PutRight(m2s, Layout{.order = order}, orders)) < least) return {of_m2s, of_m2s};
  }
  // One of the two begins elsewhere, then: M2S, if that makes it any better.
  if (of_m2s == 0 && gradients.Share(FromTheFirst(m2s, apart)) > gradients.Share(m2s)) of_m2s = apart;
  return {of_m2s, of_m2s - apart};
}

std::vector<ListOrder> OrdersFurtherOn(int further_on, std::size_t size) {
  ListOrder further = {"begins_elsewhere", "", {}, {}};
  for (std::size_t k = 0; k < size; ++k) {
    const auto place = static_cast<std::ptrdiff_t>(k + size) + further_on;
    further.place.push_back(static_cast<std::size_t>(place) % size);
  }
  return {{}, further};
}

}  // namespace quen::workbench
