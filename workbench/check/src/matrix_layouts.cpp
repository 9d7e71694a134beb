#include "workbench/check/src/matrix_layouts.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <random>
#include <utility>

#include "common/statistics/quantile.hpp"
#include "workbench/check/src/check_inverse.hpp"
#include "workbench/sensor/displacements.hpp"
#include "workbench/sensor/geometry.hpp"

namespace quen::workbench {
namespace {

constexpr double kClearly = 0.94;           // in the space: right without trying others; a turned list may have 0.91
constexpr double kNoOrder = 0.35;           // less is what noise has there, and lists in random order
constexpr double kSameSlopes = 0.8;         // of the control matrix' slopes in those of the other
constexpr double kSurelySameSlopes = 0.95;  // with no other layout tried: a turned list may have 0.9

using Candidates = std::vector<SlopeSpace::Candidate>;

/// Whether the best candidate beats how things stand by more than accident.
bool IsBetter(double best, double as_it_stands) {
  return best - as_it_stands > 0.03 && 1.0 - best < 0.7 * (1.0 - as_it_stands);
}

double ShareOf(const Candidates& candidates, const Layout& layout) {
  const auto found = std::ranges::find(candidates, layout, &SlopeSpace::Candidate::layout);
  return found == candidates.end() ? 0.0 : found->share;
}

/// Of the candidates that are as good as the best one, those of the fewest mistakes.
std::vector<Layout> Simplest(const Candidates& candidates) {
  const double missing = 1.15 * (1.0 - candidates.front().share) + 0.01;
  std::vector<Layout> layouts;
  int fewest = std::numeric_limits<int>::max();
  for (const auto& [layout, share] : candidates) {
    if (1.0 - share > missing) break;
    fewest = std::min(fewest, layout.Mistakes());
  }
  for (const auto& [layout, share] : candidates) {
    if (1.0 - share > missing) break;
    if (layout.Mistakes() == fewest) layouts.push_back(layout);
  }
  return layouts;
}

/// The other sign of both blocks.
Layout Negative(Layout layout) {
  layout.is_x_flipped = !layout.is_x_flipped;
  layout.is_y_flipped = !layout.is_y_flipped;
  return layout;
}

/// The same layouts, with the unit as all slopes together say it.
void MeasureUnits(const SlopeSpace& space, const Fields& fields, const Fields& transposed,
                  const std::vector<ListOrder>& orders, std::vector<Layout>& layouts) {
  for (Layout& layout : layouts) {
    if (layout.x_unit == 1.0) continue;
    const Candidates candidates = space.InPlace(PutRight(layout.is_transposed ? transposed : fields, layout, orders));
    const auto with_unit =
        std::ranges::find_if(candidates, [](const auto& candidate) { return candidate.layout.x_unit != 1.0; });
    if (with_unit != candidates.end()) layout.x_unit *= with_unit->layout.x_unit;
  }
}

/// The layout of slopes that are in a space as they stand, with the signs that they have: the right one, or that with
/// another unit.
std::optional<SlopeSpace::Candidate> InPlace(const SlopeSpace& space, const Fields& fields,
                                             const std::vector<ListOrder>& orders) {
  const Candidates candidates = space.InPlace(fields);
  if (candidates.empty() || candidates.front().share < kClearly || candidates.front().layout.is_x_flipped) {
    return std::nullopt;
  }
  const auto& [layout, share] = candidates.front();
  std::vector<Layout> layouts = {layout};
  MeasureUnits(space, fields, fields, orders, layouts);
  return SlopeSpace::Candidate{layouts.front(), share};
}

MatrixLayout ByGradients(const SlopeSpace& gradients, const Fields& fields, const Fields& transposed,
                         const std::vector<ListOrder>& orders) {
  MatrixLayout found;
  found.as_it_stands = gradients.Share(fields);
  found.put_right = found.as_it_stands;
  found.layouts = {Layout()};
  if (const auto in_place = InPlace(gradients, fields, orders)) {
    found.layouts = {in_place->layout};
    found.put_right = in_place->share;
    return found;
  }
  const Candidates candidates = gradients.Try(fields, transposed, orders);
  if (candidates.empty()) return found;
  const double best = candidates.front().share;
  if (IsBetter(best, ShareOf(candidates, Layout()))) {
    found.put_right = best;
    found.layouts = Simplest(candidates);
    MeasureUnits(gradients, fields, transposed, orders, found.layouts);
    const std::size_t count = found.layouts.size();
    for (std::size_t k = 0; k < count; ++k) {  // which of the blocks is flipped does not show
      if (found.layouts[k].is_x_flipped) found.layouts.push_back(Negative(found.layouts[k]));
    }
  }
  if (found.put_right < kNoOrder) found.layouts.clear();
  return found;
}

/// Where slopes are noisy, another unit of the control matrix may not show, and that of the other one is twice as far
/// from it then.
bool HaveSameUnit(const Layout& one, const Layout& other) {
  constexpr double kSame = 1.2;
  const double ratio = one.x_unit / other.x_unit;
  return ratio < kSame && ratio > 1.0 / kSame;
}

/// The two matrices, and how their slopes stand.
struct BothMatrices {
  const Matrix& m2s;
  const Matrix& cm;
  const std::vector<ListOrder>& orders;

  /// The layout of the one in which its slopes are those of the other, in its own layout.
  [[nodiscard]] std::optional<Layout> Relative(bool is_of_cm, const Layout& others) const {
    const SlopeSpace space(is_of_cm ? PutRight(M2sFields(m2s, others.is_transposed), others, orders)
                                    : PutRight(CmFields(cm, others.is_transposed), others, orders));
    const Fields fields = is_of_cm ? CmFields(cm, false) : M2sFields(m2s, false);
    const auto in_place = InPlace(space, fields, orders);
    if (in_place && in_place->share > kSurelySameSlopes) return in_place->layout;
    const Fields transposed = is_of_cm ? CmFields(cm, true) : M2sFields(m2s, true);
    const Candidates candidates = space.Try(fields, transposed, orders);
    if (candidates.empty() || candidates.front().share < kSameSlopes) return std::nullopt;
    if (!IsBetter(candidates.front().share, ShareOf(candidates, Layout()))) return Layout();
    std::optional<Layout> best;
    double best_recovery = -1.0;
    double best_trace = 0.0;
    std::vector<Layout> layouts = Simplest(candidates);
    MeasureUnits(space, fields, transposed, orders, layouts);
    for (const Layout& layout : layouts) {
      constexpr double kRounding = 1e-6;
      const Matrix right_m2s = M2sPutRight(m2s, is_of_cm ? others : layout, orders);
      const Matrix right_cm = CmPutRight(cm, is_of_cm ? layout : others, orders);
      const double recovery = Recovery(right_m2s, right_cm);
      const double trace = (right_cm * right_m2s).trace();
      // In some bases a mirrored list does to each mode what a flipped sign does, but for the mode's own sign.
      const bool has_better_signs = recovery > best_recovery - kRounding && std::abs(trace) > best_trace + kRounding;
      if (recovery > best_recovery + kRounding || has_better_signs) {
        best_recovery = recovery;
        best_trace = std::abs(trace);
        // x flipped, and all of it negative: y flipped
        best = layout.is_x_flipped && trace < 0.0 ? Negative(layout) : layout;
      }
    }
    return best;
  }
};

constexpr double kLoss = 0.02;  // of the smooth share: what puts a matrix right does not take as much

/// Where what would put CM right takes from its smooth share, it is M2S that is mistaken, if the same adds to its
/// share; else neither is known to be.
void BlameM2s(const BothMatrices& both, const SlopeSpace& gradients, MatrixLayouts& found) {
  found.cm.layouts = {Layout()};
  found.cm.put_right = found.cm.as_it_stands;
  const auto layout = both.Relative(false, Layout());
  if (!layout || *layout == Layout()) return;
  const Fields m2s = M2sFields(M2sPutRight(both.m2s, *layout, both.orders), false);
  const double put_right = gradients.Share(m2s);
  const bool is_of_cm = SlopeSpace(CmFields(both.cm, false)).Share(m2s) > 1.0 - kLoss;
  if (!is_of_cm || put_right < std::max(found.m2s.as_it_stands, found.cm.as_it_stands - kLoss)) return;
  found.m2s.layouts = {*layout};
  found.m2s.put_right = put_right;
}

}  // namespace

MatrixLayouts FindLayouts(const CalibrationContent& content, const Matrix& sound_m2s, const SlopeSpace& gradients,
                          const std::vector<ListOrder>& orders) {
  const Fields cm = CmFields(content.cm, false);
  MatrixLayouts found;
  found.m2s = ByGradients(gradients, M2sFields(sound_m2s, false), M2sFields(sound_m2s, true), orders);
  const SlopeSpace slopes(M2sFields(content.m2s, false));
  const BothMatrices both = {content.m2s, content.cm, orders};
  const auto in_place = InPlace(slopes, cm, orders);
  if (in_place && in_place->layout == Layout()) {  // whatever it is, it is the same in both
    found.cm = found.m2s;
    found.cm.as_it_stands = gradients.Share(cm);
    found.cm.is_of_the_other = true;
    return found;
  }
  found.cm = ByGradients(gradients, cm, CmFields(content.cm, true), orders);
  if (found.m2s.layouts.empty()) return found;
  if (!found.m2s.IsRight() && found.cm.IsRight()) {
    const auto layout = both.Relative(false, Layout());
    if (!layout) return found;
    if (HaveSameUnit(*layout, found.m2s.layouts.front())) {
      found.m2s.layouts = {*layout};
      return found;
    }
  }
  double best_recovery = -1.0;
  const std::vector<Layout> m2s_layouts = found.m2s.layouts;
  for (const Layout& m2s_layout : m2s_layouts) {
    const auto cm_layout = both.Relative(true, m2s_layout);
    if (!cm_layout) continue;
    const double recovery =
        Recovery(M2sPutRight(content.m2s, m2s_layout, orders), CmPutRight(content.cm, *cm_layout, orders)) -
        0.01 * cm_layout->Mistakes();
    if (recovery <= best_recovery) continue;
    best_recovery = recovery;
    found.m2s.layouts = {m2s_layout};
    found.cm.layouts = {*cm_layout};
    found.cm.put_right = gradients.Share(PutRight(CmFields(content.cm, cm_layout->is_transposed), *cm_layout, orders));
  }
  if (found.m2s.IsRight() && found.cm.put_right < found.cm.as_it_stands - kLoss) BlameM2s(both, gradients, found);
  return found;
}

std::optional<UsageFlags> FlagsOfAnotherPupil(const CalibrationContent& content) {
  constexpr int kCoarse = 8;        // degree: enough to tell one pupil from another, if not from its neighbours
  constexpr double kSteps = 10000;  // of an obscuration of 1: finer than their flags differ, but for round numbers
  constexpr auto kLargest = static_cast<int>(kLargestObscuration * kSteps);
  constexpr int kFirst = 25;        // steps from one obscuration to the next, about the best of which all are tried
  constexpr double kClearly = 0.7;  // of what was no gradient
  const Fields sample = Sample(M2sFields(content.m2s, false));
  const auto share = [&](const UsageFlags& flags, int degree) {
    return SlopeSpace::OfGradients(content.rois, UsedIndices(flags), degree).Share(sample);
  };
  struct Candidate {
    int first = 0;  // obscurations with these flags, in steps
    int last = 0;
    UsageFlags flags = {};
    double share = 0.0;
  };
  const auto best_from = [&](int first, int last, int step, int degree) {
    Candidate best;
    UsageFlags tried;
    for (int k = std::max(0, first); k <= std::min(last, kLargest); k += step) {
      UsageFlags flags = UsedFlags({.obscuration = k / kSteps});
      if (flags == best.flags) best.last = k;
      if (flags == tried) continue;
      tried = flags;
      const double with_flags = share(flags, degree);
      if (with_flags > best.share) best = {k, k, std::move(flags), with_flags};
    }
    return best;
  };
  const Candidate coarse = best_from(0, kLargest, kFirst, kCoarse);
  if (!(1.0 - coarse.share < kClearly * (1.0 - share(content.used, kCoarse)))) return std::nullopt;
  return best_from(coarse.first - kFirst, coarse.last + kFirst, 1, kSmoothDegree).flags;
}

double Unevenness(const Fields& fields, const Lattice& lattice, const std::vector<std::size_t>& used) {
  using Triple = std::array<std::size_t, 3>;
  const Eigen::Index half = fields.rows() / 2;
  const auto median = [&](const std::vector<Triple>& triples) {
    std::vector<double> squares;
    for (const auto& [before, middle, after] : triples) {
      double square = 0.0;
      for (const Eigen::Index first : {Eigen::Index{0}, half}) {
        const auto row = [&](std::size_t k) { return fields.row(first + static_cast<Eigen::Index>(k)); };
        square += (row(before) - 2.0 * row(middle) + row(after)).squaredNorm();
      }
      squares.push_back(square);
    }
    return common::LowerMedian(squares);
  };
  const auto is_next = [&](std::size_t from, std::size_t to) {
    const Place& one = lattice.places[used[from]];
    const Place& other = lattice.places[used[to]];
    return one.row == other.row && other.column - one.column == 1;
  };
  std::vector<Triple> neighbours;
  std::vector<Triple> strangers;
  std::mt19937 random(1);  // NOLINT(cert-msc51-cpp): the same examination each time
  for (std::size_t k = 1; k + 1 < used.size(); ++k) {
    if (!is_next(k - 1, k) || !is_next(k, k + 1)) continue;
    neighbours.push_back({k - 1, k, k + 1});
    strangers.push_back({random() % used.size(), random() % used.size(), random() % used.size()});
  }
  const double without_order = median(strangers);
  return without_order > 0.0 ? median(neighbours) / without_order : 1.0;
}

Matrix M2sPutRight(const Matrix& m2s, const Layout& layout, const std::vector<ListOrder>& orders) {
  return PutRight(M2sFields(m2s, layout.is_transposed), layout, orders);
}

Matrix CmPutRight(const Matrix& cm, const Layout& layout, const std::vector<ListOrder>& orders) {
  return PutRight(CmFields(cm, layout.is_transposed), layout, orders).transpose();
}

}  // namespace quen::workbench
