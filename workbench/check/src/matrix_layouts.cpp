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

constexpr double kClearly = 0.94;      // in the space, as it stands; a turned list may have 0.95, though
constexpr double kNoOrder = 0.35;      // less is what noise has there, and lists in random order
constexpr double kSameSlopes = 0.8;    // of the control matrix' slopes in those of the other
constexpr double kSurelyClear = 1e-4;  // what an inverse gives back
constexpr double kClear = 0.6;         // what one of noisier slopes gives back

using Candidates = std::vector<SlopeSpace::Candidate>;

/// Whether the best candidate beats how things stand by more than accident.
bool IsBetter(double best, double as_it_stands) {
  return best - as_it_stands > 0.03 && 1.0 - best < 0.7 * (1.0 - as_it_stands);
}

double ShareOf(const Candidates& candidates, const Layout& layout) {
  const auto found = std::ranges::find(candidates, layout, &SlopeSpace::Candidate::layout);
  return found == candidates.end() ? 0.0 : found->share;
}

int MistakesIn(const SlopeSpace::Candidate& candidate) { return candidate.layout.Mistakes(); }

/// Those that are as good as the best one, which is the first.
Candidates AsGood(const Candidates& candidates) {
  const double missing = 1.15 * (1.0 - candidates.front().share) + 0.01;
  Candidates as_good;
  std::ranges::copy_if(candidates, std::back_inserter(as_good),
                       [missing](const auto& candidate) { return 1.0 - candidate.share <= missing; });
  return as_good;
}

/// The other sign of both blocks.
Layout Negative(Layout layout) {
  layout.is_x_flipped = !layout.is_x_flipped;
  layout.is_y_flipped = !layout.is_y_flipped;
  return layout;
}

/// A matrix's slope vectors as they stand, and as they would had it been transposed in memory.
struct Standing {
  Fields fields;
  Fields transposed;

  [[nodiscard]] Fields PutRight(const Layout& layout, const std::vector<ListOrder>& orders) const {
    return workbench::PutRight(layout.is_transposed ? transposed : fields, layout, orders);
  }

  /// Enough to tell the units by.
  [[nodiscard]] Standing Sampled() const {
    constexpr Eigen::Index kSums = 12;
    return {Sample(fields, kSums), Sample(transposed, kSums)};
  }
};

Standing StandingM2s(const Matrix& m2s) { return {M2sFields(m2s, false), M2sFields(m2s, true)}; }
Standing StandingCm(const Matrix& cm) { return {CmFields(cm, false), CmFields(cm, true)}; }

/// The same layout, with the unit as all slopes together say it.
Layout WithUnit(const SlopeSpace& space, const Standing& slopes, const std::vector<ListOrder>& orders, Layout layout) {
  const Candidates candidates = space.InPlace(slopes.PutRight(layout, orders));
  const auto with_unit =
      std::ranges::find_if(candidates, [](const auto& candidate) { return candidate.layout.x_unit != 1.0; });
  if (with_unit != candidates.end()) layout.x_unit *= with_unit->layout.x_unit;
  return layout;
}

/// The layout of slopes that are in a space as they stand, with the signs that they have: the right one, or that with
/// another unit.
std::optional<SlopeSpace::Candidate> InPlace(const SlopeSpace& space, const Standing& slopes,
                                             const std::vector<ListOrder>& orders) {
  const Candidates candidates = space.InPlace(slopes.fields);
  if (candidates.empty() || candidates.front().share < kClearly || candidates.front().layout.is_x_flipped) {
    return std::nullopt;
  }
  const auto& [layout, share] = candidates.front();
  return SlopeSpace::Candidate{layout.x_unit == 1.0 ? layout : WithUnit(space, slopes, orders, layout), share};
}

/// What a matrix's slopes alone say of their layout.
struct OwnLayouts {
  double as_it_stands = 0.0;                    ///< share that is a smooth gradient
  std::optional<SlopeSpace::Candidate> stands;  ///< how they stand, if nothing is clearly better
  Candidates candidates = {};  ///< all that are as good, of the fewest mistakes first; none of no order
};

/// Looks for the layouts in which slopes are smooth gradients.
struct Search {
  const SlopeSpace& gradients;
  const Lattice& lattice;
  const std::vector<std::size_t>& used;
  const std::vector<ListOrder>& orders;

  /// @param is_thorough  other layouts are looked for also where the slopes are in place
  [[nodiscard]] OwnLayouts LayoutsOf(const Standing& slopes, bool is_thorough) const {
    constexpr double kSurely = 0.25;  // of what is no gradient: slopes may be out of place in no layout that has a name
    OwnLayouts own = {gradients.Share(slopes.fields), InPlace(gradients, slopes, orders)};
    const SlopeSpace::Candidate standing = own.stands.value_or(SlopeSpace::Candidate{Layout(), own.as_it_stands});
    const bool is_almost_in_place = own.stands && !IsRestNoise(slopes.fields, own.stands->share);
    if (is_almost_in_place) own.stands.reset();
    if (own.stands && !is_thorough) {
      own.candidates = {standing};
      return own;
    }
    const Candidates all = gradients.Try(slopes.fields, slopes.transposed, orders);
    const double best = all.empty() ? 0.0 : all.front().share;
    const bool is_better =
        is_almost_in_place ? 1.0 - best < kSurely * (1.0 - standing.share) : IsBetter(best, ShareOf(all, Layout()));
    if (!is_better) own.stands = standing;
    if (std::max(standing.share, best) < kNoOrder) return {own.as_it_stands, {}};
    if (!all.empty()) own.candidates = WithUnits(AsGood(all), slopes);
    if (own.stands && ShareOf(own.candidates, standing.layout) == 0.0) own.candidates.push_back(standing);
    AddOtherSigns(own.candidates);
    std::ranges::stable_sort(own.candidates, {}, MistakesIn);
    return own;
  }

 private:
  /// Whether what is no smooth wavefront's, where slopes stand, can be noise.
  [[nodiscard]] bool IsRestNoise(const Fields& slopes, double share) const {
    constexpr double kSurely = 0.967;  // next to none that is not in its place
    constexpr double kAsNoise = 0.5;   // as uneven along the list
    return share > kSurely || Unevenness(Sample(slopes), lattice, used) > kAsNoise * (1.0 - share);
  }

  [[nodiscard]] Candidates WithUnits(Candidates candidates, const Standing& slopes) const {
    const Standing sample = slopes.Sampled();
    for (auto& candidate : candidates) candidate.layout = WithUnit(gradients, sample, orders, candidate.layout);
    return candidates;
  }

  /// Which of the blocks is flipped does not show.
  static void AddOtherSigns(Candidates& candidates) {
    const std::size_t count = candidates.size();
    for (std::size_t k = 0; k < count; ++k) {
      const auto [layout, share] = candidates[k];
      if (layout.is_x_flipped) candidates.push_back({Negative(layout), share});
    }
  }
};

// --- Both together

/// How many mistakes someone has made who has the two matrices in these layouts: what is the same in both counts once.
int JointMistakes(const Layout& one, const Layout& other) {
  constexpr double kSame = 1.1;
  const auto is_one = [](double ratio) { return ratio < kSame && ratio > 1.0 / kSame; };
  Layout rest = other;
  if (one.is_transposed) rest.is_transposed = false;
  if (one.is_interleaved == other.is_interleaved && one.is_x_first == other.is_x_first) {
    rest.is_interleaved = false;
    rest.is_x_first = false;
  }
  if (one.order == other.order) rest.order = 0;
  if (one.is_x_flipped == other.is_x_flipped && one.is_y_flipped == other.is_y_flipped) {
    rest.is_x_flipped = false;
    rest.is_y_flipped = false;
  }
  // The control matrix of slopes that are too large is made of these, or undoes it.
  if (is_one(one.x_unit / other.x_unit) || is_one(one.x_unit * other.x_unit)) rest.x_unit = 1.0;
  return one.Mistakes() + rest.Mistakes();
}

/// Layouts of both matrices in which the control matrix gives back modes.
struct Pairing {
  Layout m2s;
  Layout cm;
  double no_gradient = 0.0;  ///< share of the slopes
  double unclear = 0.0;      ///< share of what is given back; none where each row gives back one mode, whichever
  int mistakes = 0;          ///< those of the order and the signs of the modes included
};

/// The two matrices, and how their slopes stand.
struct BothMatrices {
  Standing m2s;
  Standing cm;
  const std::vector<ListOrder>& orders;

  /// All that may be of the fewest mistakes.
  [[nodiscard]] std::vector<Pairing> Pairings(const Candidates& of_m2s) const {
    std::vector<Pairing> pairings;
    int fewest = std::numeric_limits<int>::max();
    for (const auto& candidate : of_m2s) {
      if (candidate.layout.Mistakes() > fewest) break;
      for (const Layout& of_cm : OfCm(candidate.layout)) {
        pairings.push_back(Paired(candidate, of_cm));
        if (pairings.back().unclear < kSurelyClear) fewest = std::min(fewest, pairings.back().mistakes);
      }
    }
    return pairings;
  }

 private:
  /// Layouts of CM in which its slopes are those of M2S in a layout of its own.
  [[nodiscard]] std::vector<Layout> OfCm(const Layout& of_m2s) const {
    const SlopeSpace space(m2s.PutRight(of_m2s, orders));
    const Candidates candidates = space.Try(cm.fields, cm.transposed, orders);
    if (candidates.empty() || candidates.front().share < kSameSlopes) return {};
    const Standing sample = cm.Sampled();
    std::vector<Layout> layouts;
    for (const auto& candidate : AsGood(candidates)) {
      const bool is_right = candidate.layout == Layout();
      layouts.push_back(is_right ? Layout() : WithUnit(space, sample, orders, candidate.layout));
    }
    return layouts;
  }

  [[nodiscard]] Pairing Paired(const SlopeSpace::Candidate& of_m2s, const Layout& of_cm) const {
    const GivenBack modes(cm.PutRight(of_cm, orders).transpose() * m2s.PutRight(of_m2s.layout, orders));
    const bool is_y_flipped = modes.IsNegative() && of_cm.is_x_flipped;  // x flipped, and all of it negative
    Pairing pairing = {of_m2s.layout, is_y_flipped ? Negative(of_cm) : of_cm, 1.0 - of_m2s.share, modes.Unclear()};
    pairing.mistakes = JointMistakes(pairing.m2s, pairing.cm) + static_cast<int>(modes.IsNegative() && !is_y_flipped) +
                       static_cast<int>(!modes.IsInOrder()) + static_cast<int>(modes.HasMixedSigns());
    return pairing;
  }
};

void KeepLeast(std::vector<Pairing>& pairings, double Pairing::*value, double accident) {
  constexpr double kFactor = 1.15;
  if (pairings.empty()) return;
  const double least = std::ranges::min(pairings, {}, value).*value;
  std::erase_if(pairings, [&](const Pairing& pairing) { return pairing.*value > kFactor * least + accident; });
}

/// Those in which the control matrix gives back modes most clearly, whose slopes are nearest to gradients, and of these
/// the ones of the fewest mistakes.
std::vector<Pairing> Likeliest(std::vector<Pairing> pairings) {
  constexpr double kOfUnits = 3e-4;   // which are measured
  constexpr double kOfPupils = 3e-3;  // which look almost the same turned or mirrored
  KeepLeast(pairings, &Pairing::unclear, kOfUnits);
  KeepLeast(pairings, &Pairing::no_gradient, kOfPupils);
  if (pairings.empty()) return pairings;
  const int fewest = std::ranges::min(pairings, {}, &Pairing::mistakes).mistakes;
  std::erase_if(pairings, [fewest](const Pairing& pairing) { return pairing.mistakes > fewest; });
  return pairings;
}

// --- What is told of them

void AddOnce(std::vector<Layout>& layouts, const Layout& layout) {
  if (std::ranges::find(layouts, layout) == layouts.end()) layouts.push_back(layout);
}

/// What the slopes alone say: those of the fewest mistakes, and those of one more.
MatrixLayout Taken(const OwnLayouts& own, const std::vector<ListOrder>& orders) {
  MatrixLayout matrix = {.as_it_stands = own.as_it_stands, .put_right = own.as_it_stands};
  if (own.stands) {
    matrix.put_right = own.stands->share;
    matrix.layouts = {own.stands->layout};
    return matrix;
  }
  const auto is_turned_back = [&](Layout layout) {  // of a pupil that is the same upside down, that is always so
    const bool is_turned = orders[layout.order].mistake == "turned_180";
    layout.order = 0;
    return is_turned && std::ranges::find(matrix.layouts, layout) != matrix.layouts.end();
  };
  for (const auto& [layout, share] : own.candidates) {
    matrix.put_right = std::max(matrix.put_right, share);
    const int more = layout.Mistakes() - own.candidates.front().layout.Mistakes();
    if (more == 0) AddOnce(matrix.layouts, layout);
    if (more == 1 && !is_turned_back(layout)) AddOnce(matrix.further, layout);
  }
  return matrix;
}

/// Where one matrix is right in one of the pairs, and the other one in another, it is told of CM, and of M2S as what
/// may be instead.
void Take(const std::vector<Pairing>& pairings, MatrixLayouts& found) {
  const bool may_m2s_be_right =
      std::ranges::any_of(pairings, [](const Pairing& pairing) { return pairing.m2s == Layout(); });
  for (MatrixLayout* const matrix : {&found.m2s, &found.cm}) {
    matrix->layouts.clear();
    matrix->further.clear();
  }
  for (const Pairing& pairing : pairings) {
    if (!may_m2s_be_right || pairing.m2s == Layout()) {
      AddOnce(found.m2s.layouts, pairing.m2s);
      AddOnce(found.cm.layouts, pairing.cm);
    } else if (pairing.cm == Layout()) {
      AddOnce(found.of_m2s_instead, pairing.m2s);
    }
  }
  found.m2s.put_right = 1.0 - pairings.front().no_gradient;
}

}  // namespace

MatrixLayouts FindLayouts(const CalibrationContent& content, const Matrix& sound_m2s, const SlopeSpace& gradients,
                          const Lattice& lattice, const std::vector<std::size_t>& used,
                          const std::vector<ListOrder>& orders) {
  const Search search = {gradients, lattice, used, orders};
  const BothMatrices both = {StandingM2s(content.m2s), StandingCm(content.cm), orders};
  const auto relative = InPlace(SlopeSpace(both.m2s.fields), both.cm, orders);
  const bool are_same = relative && relative->layout == Layout();
  const bool are_modes_right = GivenBack(content.cm * content.m2s).AreRight();
  const OwnLayouts m2s = search.LayoutsOf(StandingM2s(sound_m2s), !are_modes_right);
  MatrixLayouts found;
  found.m2s = Taken(m2s, orders);
  if (!are_same || !are_modes_right) {
    const std::vector<Pairing> pairings = Likeliest(both.Pairings(m2s.candidates));
    if (!pairings.empty() && pairings.front().unclear < kClear) {
      found.cm.as_it_stands = gradients.Share(both.cm.fields);
      Take(pairings, found);
      found.cm.put_right = gradients.Share(both.cm.PutRight(found.cm.layouts.front(), orders));
      found.cm.is_of_the_other = are_same && found.cm.IsRight();
      return found;
    }
  }
  if (are_same) {  // whatever the layout is, it is the same in both
    found.cm = found.m2s;
    found.cm.as_it_stands = gradients.Share(both.cm.fields);
    found.cm.is_of_the_other = true;
    return found;
  }
  found.cm = Taken(search.LayoutsOf(both.cm, false), orders);
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
