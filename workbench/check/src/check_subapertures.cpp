#include "workbench/check/src/check_subapertures.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <limits>
#include <map>
#include <optional>
#include <utility>

#include "common/statistics/quantile.hpp"
#include "workbench/sensor/matrices.hpp"

namespace quen::workbench {
namespace {

using Eigen::Index;

// --- What the neighbours say

/// The used sub-apertures that are near one of them: up to two places away, twelve where the pupil is whole.
struct Neighbours {
  std::vector<std::size_t> numbers;               ///< in the list of the used ones
  std::vector<std::pair<int, int>> offsets = {};  ///< rows and columns
};

/// Weights with which the neighbours' slopes make the one between them: the value there of the parabola that fits them
/// best, or of the plane, where the parabola is not held from all sides. None where the plane is not either, as where
/// all neighbours are on one side: it would say little of what lies beyond them.
std::optional<Eigen::RowVectorXd> Weights(const std::vector<std::pair<int, int>>& offsets) {
  constexpr double kHeld = 0.75;  // sum of their squares: that of noise in the value over that in the neighbours
  constexpr Index kOfPlane = 3;
  constexpr Index kOfParabola = 6;
  Matrix powers(static_cast<Index>(offsets.size()), kOfParabola);
  for (std::size_t k = 0; k < offsets.size(); ++k) {
    const double y = offsets[k].first;
    const double x = offsets[k].second;
    powers.row(static_cast<Index>(k)) << 1.0, x, y, x * x, x * y, y * y;
  }
  for (const Index terms : {kOfParabola, kOfPlane}) {
    if (powers.rows() <= terms) continue;
    const Eigen::RowVectorXd weights = PseudoInverse(powers.leftCols(terms)).row(0);
    if (weights.squaredNorm() < kHeld) return weights;
  }
  return std::nullopt;
}

/// The slopes of each used sub-aperture, and what its neighbours let expect of them. Those without slopes say nothing
/// of their neighbours.
class Expectation {
 public:
  /// @param slopes  of modes of length 1 each
  Expectation(Matrix slopes, const Lattice& lattice, const std::vector<std::size_t>& used)
      : slopes_(std::move(slopes)), is_odd_(used.size()) {
    const NumbersByPlace numbers = NumbersOf(lattice, used);
    for (std::size_t k = 0; k < used.size(); ++k) {
      neighbours_.push_back(NeighboursOf(lattice.places[used[k]], numbers));
      is_odd_[k] = !HasSlopes(k);
    }
  }

  /// What its neighbours let expect of a sub-aperture: y slopes of all modes, then x slopes. None of too few
  /// neighbours.
  [[nodiscard]] std::optional<Eigen::RowVectorXd> Of(std::size_t k) {
    Neighbours sound;
    for (std::size_t n = 0; n < neighbours_[k].numbers.size(); ++n) {
      if (is_odd_[neighbours_[k].numbers[n]]) continue;
      sound.numbers.push_back(neighbours_[k].numbers[n]);
      sound.offsets.push_back(neighbours_[k].offsets[n]);
    }
    const auto [entry, is_new] = weights_.try_emplace(sound.offsets);
    if (is_new) entry->second = Weights(sound.offsets);
    const auto& weights = entry->second;
    if (!weights) return std::nullopt;
    Eigen::RowVectorXd sum = Eigen::RowVectorXd::Zero(2 * slopes_.cols());
    for (std::size_t n = 0; n < sound.numbers.size(); ++n) {
      sum += (*weights)(static_cast<Index>(n)) * SlopesOf(sound.numbers[n]);
    }
    if (!(sum.squaredNorm() > 0.0)) return std::nullopt;
    return sum;
  }

  /// How far the slopes of a sub-aperture are from what its neighbours let expect, over the latter; squares. 0 where
  /// nothing is expected, or nothing is there.
  [[nodiscard]] double Oddness(std::size_t k) { return HasSlopes(k) && Of(k) ? Misfit(k, k) : 0.0; }

  /// The same with the slopes of another one in its place, divided by a factor; infinite where nothing is expected.
  [[nodiscard]] double Misfit(std::size_t k, std::size_t other, double factor = 1.0) {
    const auto expected = Of(k);
    if (!expected) return std::numeric_limits<double>::infinity();
    return (SlopesOf(other) / factor - *expected).squaredNorm() / expected->squaredNorm();
  }

  /// So many times the slopes are as large as expected.
  [[nodiscard]] double Factor(std::size_t k) {
    const auto expected = Of(k);
    return expected ? SlopesOf(k).dot(*expected) / expected->squaredNorm() : 1.0;
  }

  /// From now on it says nothing of its neighbours, or again what its slopes say.
  void LeaveOut(std::size_t k) { is_odd_[k] = true; }
  void TakeIn(std::size_t k) { is_odd_[k] = false; }

  /// Whether something is expected of it, or it has been left out.
  [[nodiscard]] bool IsKnown(std::size_t k) { return is_odd_[k] || Of(k).has_value(); }

  [[nodiscard]] const std::vector<std::size_t>& Near(std::size_t k) const { return neighbours_[k].numbers; }
  [[nodiscard]] std::size_t Size() const { return neighbours_.size(); }

 private:
  static Neighbours NeighboursOf(const Place& place, const NumbersByPlace& numbers) {
    constexpr int kReach = 2;
    Neighbours neighbours;
    for (int row = -kReach; row <= kReach; ++row) {
      for (int column = -kReach; column <= kReach; ++column) {
        const int square = row * row + column * column;
        if (square == 0 || square > kReach * kReach) continue;
        const auto found = numbers.find({.row = place.row + row, .column = place.column + column});
        if (found == numbers.end()) continue;
        neighbours.numbers.push_back(found->second);
        neighbours.offsets.emplace_back(row, column);
      }
    }
    return neighbours;
  }

  /// Of all modes along both axes.
  [[nodiscard]] Eigen::RowVectorXd SlopesOf(std::size_t k) const {
    const auto row = static_cast<Index>(k);
    Eigen::RowVectorXd both(2 * slopes_.cols());
    both << slopes_.row(row), slopes_.row(slopes_.rows() / 2 + row);
    return both;
  }

  [[nodiscard]] bool HasSlopes(std::size_t k) const { return SlopesOf(k).squaredNorm() > 0.0; }

  Matrix slopes_;
  std::vector<Neighbours> neighbours_;
  std::vector<bool> is_odd_;  ///< or without slopes
  /// Of each shape of neighbours.
  std::map<std::vector<std::pair<int, int>>, std::optional<Eigen::RowVectorXd>> weights_;
};

// --- The odd ones

/// In the list of the used ones.
using Numbers = std::vector<std::size_t>;

/// By how much the oddness of a sub-aperture and its neighbours falls if it says nothing of them any more.
double Relief(Expectation& expectation, const std::vector<double>& oddness, std::size_t k) {
  double relief = oddness[k];
  expectation.LeaveOut(k);
  for (const std::size_t near : expectation.Near(k)) {
    if (oddness[near] > 0.0) relief += oddness[near] - expectation.Oddness(near);
  }
  expectation.TakeIn(k);
  return relief;
}

/// Of the worst one and those near it that are odd, or of which nothing is expected, that which makes the others odd: a
/// sound one may be farther from what is expected of it than the odd one beside it, where its neighbours are few.
std::size_t Culprit(Expectation& expectation, const std::vector<double>& oddness, std::size_t worst, double least) {
  std::size_t culprit = worst;
  double most = Relief(expectation, oddness, worst);
  for (const std::size_t k : expectation.Near(worst)) {
    if (oddness[k] <= least && expectation.IsKnown(k)) continue;
    const double relief = Relief(expectation, oddness, k);
    if (relief <= most) continue;
    most = relief;
    culprit = k;
  }
  return culprit;
}

/// Those that do not fit their neighbours, and stand out: in good calibrations, with a fifth of noise even, none is
/// farther than 0.5 from what is expected; slopes of noise, or of another place, are 2 from it. None if there are so
/// many that it is no matter of single ones.
Numbers OddOnes(Expectation& expectation) {
  constexpr double kOdd = 0.8;
  constexpr double kStandsOut = 4.0;  // times what nine tenths are below
  constexpr double kMostOfThem = 0.9;
  constexpr std::size_t kMost = 12;
  std::vector<double> oddness(expectation.Size());
  for (std::size_t k = 0; k < oddness.size(); ++k) oddness[k] = expectation.Oddness(k);
  std::vector<double> all = oddness;
  const double least = std::max(kOdd, kStandsOut * quen::common::Quantile(all, kMostOfThem));
  Numbers odd;
  for (;;) {
    const auto worst = static_cast<std::size_t>(std::ranges::max_element(oddness) - oddness.begin());
    if (!(oddness[worst] > least)) break;
    if (odd.size() == kMost) return {};
    const std::size_t culprit = Culprit(expectation, oddness, worst, least);
    odd.push_back(culprit);
    oddness[culprit] = 0.0;
    expectation.LeaveOut(culprit);
    for (const std::size_t k : expectation.Near(culprit)) {
      if (oddness[k] > 0.0) oddness[k] = expectation.Oddness(k);
    }
  }
  std::ranges::sort(odd);
  return odd;
}

/// What an exchange of two sub-apertures makes of slopes that are no gradient. At the rim, neighbours say too little.
class Exchanges {
 public:
  Exchanges(const Matrix& m2s, const SlopeSpace& gradients)
      : gradients_(gradients), slopes_(ColumnsOfLengthOne(Sample(m2s, kSums))) {}

  /// Whether most of what an exchange moves was no gradient, and is one then.
  [[nodiscard]] bool PutsRight(std::size_t one, std::size_t other) const {
    constexpr double kMost = 0.4;  // of the rest the polynomials follow half, at the rim
    Matrix exchanged = slopes_;
    const Index half = slopes_.rows() / 2;
    double moved = 0.0;
    for (const Index first : {Index{0}, half}) {
      const Index from = first + static_cast<Index>(one);
      const Index to = first + static_cast<Index>(other);
      moved += 2.0 * (slopes_.row(from) - slopes_.row(to)).squaredNorm();
      exchanged.row(from).swap(exchanged.row(to));
    }
    const double gain = gradients_.Share(exchanged) - gradients_.Share(slopes_);
    return gain * static_cast<double>(slopes_.cols()) > kMost * moved;
  }

 private:
  static constexpr Index kSums = 12;

  const SlopeSpace& gradients_;
  Matrix slopes_;
};

/// The one whose slopes are most like what is expected of a sub-aperture, if an exchange puts both right.
std::optional<std::size_t> PartnerByGradients(std::size_t k, Expectation& expectation, const Exchanges& exchanges) {
  constexpr std::size_t kTried = 6;
  std::vector<std::pair<double, std::size_t>> others;
  for (std::size_t other = 0; other < expectation.Size(); ++other) {
    if (other != k) others.emplace_back(expectation.Misfit(k, other), other);
  }
  std::ranges::partial_sort(others, others.begin() + kTried);
  others.resize(kTried);
  const auto partner =
      std::ranges::find_if(others, [&](const auto& other) { return exchanges.PutsRight(k, other.second); });
  if (partner == others.end()) return std::nullopt;
  return partner->second;
}

OddSubapertures SortedOut(const Numbers& odd, Expectation& expectation, const Exchanges& exchanges) {
  constexpr double kFits = 0.3;
  OddSubapertures sorted;
  Numbers rest;
  for (const std::size_t k : odd) {
    const double factor = expectation.Factor(k);
    if (expectation.Misfit(k, k, factor) < kFits) {
      sorted.scaled.emplace_back(k, factor);
    } else {
      rest.push_back(k);
    }
  }
  while (!rest.empty()) {
    const std::size_t k = rest.front();
    rest.erase(rest.begin());
    std::optional<std::size_t> partner;
    double best = kFits;
    for (std::size_t other = 0; other < expectation.Size(); ++other) {
      if (other == k) continue;
      const double misfit = std::max(expectation.Misfit(k, other), expectation.Misfit(other, k));
      if (misfit < best && expectation.Misfit(other, k) < expectation.Misfit(other, other)) {
        best = misfit;
        partner = other;
      }
    }
    if (!partner) partner = PartnerByGradients(k, expectation, exchanges);
    if (!partner) {
      sorted.unlike.push_back(k);
      continue;
    }
    sorted.exchanged.emplace_back(std::min(k, *partner), std::max(k, *partner));
    std::erase(rest, *partner);
  }
  return sorted;
}

// --- Findings

Finding OfSubapertures(std::string text, std::string advice, std::vector<std::size_t> numbers) {
  return {Verdict::kDoubtful, "m2s.subapertures", "M2S slopes", std::move(text), std::move(advice), {},
          std::move(numbers)};
}

/// "sub-aperture 3", "sub-apertures 3, 5, 7".
std::string Words(const std::vector<std::size_t>& numbers) {
  constexpr std::size_t kNamed = 8;
  std::vector<std::size_t> named = numbers;
  named.resize(std::min(numbers.size(), kNamed));
  return fmt::format("{} {}{}", numbers.size() == 1 ? "sub-aperture" : "sub-apertures", fmt::join(named, ", "),
                     numbers.size() > kNamed ? fmt::format(" and {} more", numbers.size() - kNamed) : "");
}

void AddDead(const Matrix& m2s, const std::vector<std::size_t>& used, Findings& findings) {
  const Index half = m2s.rows() / 2;
  std::vector<std::size_t> dead;
  for (Index k = 0; k < half; ++k) {
    if (m2s.row(k).isZero(0.0) || m2s.row(half + k).isZero(0.0)) dead.push_back(used[static_cast<std::size_t>(k)]);
  }
  if (dead.empty()) return;
  findings.push_back(
      OfSubapertures(fmt::format("no mode moves the spot of {}, along one axis or both (rows of zeros)", Words(dead)),
                     "if they are dark, flag others as used; if they are not, measure again", dead));
}

/// Exchanges the slopes of two, in the control matrix too if it was made of them as they were.
Correction Exchange(std::size_t one, std::size_t other) {
  const auto swap_rows = [one, other](auto&& matrix) {
    const Index half = matrix.rows() / 2;
    for (const Index first : {Index{0}, half}) {
      matrix.row(first + static_cast<Index>(one)).swap(matrix.row(first + static_cast<Index>(other)));
    }
  };
  return {"subapertures_exchanged", [swap_rows](CalibrationContent& content) {
            swap_rows(content.m2s);
            Matrix slopes = content.cm.transpose();
            swap_rows(slopes);
            const Matrix cm = slopes.transpose();
            const auto distance = [&](const Matrix& of) {
              return (of * content.m2s - Matrix::Identity(of.rows(), of.rows())).norm();
            };
            if (distance(cm) < distance(content.cm)) content.cm = cm;
          }};
}

void AddOdd(const OddSubapertures& odd, const std::vector<std::size_t>& used, Findings& findings) {
  for (const auto& [one, other] : odd.exchanged) {
    findings.push_back(OfSubapertures(fmt::format("the slopes of {} are exchanged", Words({used[one], used[other]})),
                                      "exchange them in M2S, and in a control matrix that was made of it",
                                      {used[one], used[other]}));
    findings.back().corrections = {Exchange(one, other)};
  }
  for (const auto& [k, factor] : odd.scaled) {
    findings.push_back(OfSubapertures(
        fmt::format("the slopes of {} are {:.3g} times what those of its neighbours let expect", Words({used[k]}),
                    factor),
        "measure again, or divide them by that factor and compute CM.fits anew from M2S.fits", {used[k]}));
  }
  if (odd.unlike.empty()) return;
  std::vector<std::size_t> numbers;
  for (const std::size_t k : odd.unlike) numbers.push_back(used[k]);
  findings.push_back(OfSubapertures(fmt::format("the slopes of {} do not fit those of {} neighbours", Words(numbers),
                                                numbers.size() == 1 ? "its" : "their"),
                                    "if they are lit, measure again; if they are dark, flag others as used", numbers));
}

}  // namespace

OddSubapertures FindOddSubapertures(const Matrix& m2s, const Lattice& lattice, const std::vector<std::size_t>& used,
                                    const SlopeSpace& gradients) {
  Expectation expectation(ColumnsOfLengthOne(m2s), lattice, used);
  const Numbers all = OddOnes(expectation);
  OddSubapertures odd = all.empty() ? OddSubapertures() : SortedOut(all, expectation, Exchanges(m2s, gradients));
  odd.sound = m2s;
  Numbers replaced = all;
  for (const auto& [one, other] : odd.exchanged) replaced.insert(replaced.end(), {one, other});
  const Index half = m2s.rows() / 2;
  for (const std::size_t k : replaced) {
    const auto expected = expectation.Of(k);
    if (!expected) continue;
    const auto row = static_cast<Index>(k);
    for (Index mode = 0; mode < m2s.cols(); ++mode) {
      const double length = m2s.col(mode).stableNorm();
      odd.sound(row, mode) = length * (*expected)(mode);
      odd.sound(half + row, mode) = length * (*expected)(m2s.cols() + mode);
    }
  }
  return odd;
}

Findings CheckSubapertures(const Matrix& m2s, const OddSubapertures& odd, const std::vector<std::size_t>& used) {
  Findings findings;
  AddDead(m2s, used, findings);
  AddOdd(odd, used, findings);
  return findings;
}

}  // namespace quen::workbench
