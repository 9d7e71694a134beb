#include "workbench/check/src/slide.hpp"

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <set>
#include <span>
#include <utility>

#include "workbench/sensor/displacements.hpp"

namespace quen::workbench {
namespace {

using Eigen::Index;

/// The places where the list goes from one row of neighbours to the next, or column, as it goes: the first and the last
/// of each.
std::vector<std::size_t> EndsOfRuns(const Lattice& lattice, const std::vector<std::size_t>& used) {
  const auto is_step = [&](std::size_t k, int Place::*along, int Place::*across) {
    const Place& before = lattice.places[used[k - 1]];
    const Place& after = lattice.places[used[k]];
    return before.*across == after.*across && std::abs(after.*along - before.*along) == 1;
  };
  std::size_t in_rows = 0;
  std::size_t in_columns = 0;
  for (std::size_t k = 1; k < used.size(); ++k) {
    in_rows += static_cast<std::size_t>(is_step(k, &Place::column, &Place::row));
    in_columns += static_cast<std::size_t>(is_step(k, &Place::row, &Place::column));
  }
  const auto is_next = [&](std::size_t k) {
    return in_rows >= in_columns ? is_step(k, &Place::column, &Place::row) : is_step(k, &Place::row, &Place::column);
  };
  std::vector<std::size_t> ends;
  for (std::size_t k = 0; k < used.size(); ++k) {
    const bool is_first = k == 0 || !is_next(k);
    const bool is_last = k + 1 == used.size() || !is_next(k + 1);
    if (is_first || is_last) ends.push_back(k);
  }
  return ends;
}

/// Sums over the first so many entries of the list, of what the slopes of other entries are in their places.
class Sums {
 public:
  /// @param shift  entry k has the slopes of entry k + shift
  Sums(const Fields& slopes, const Eigen::MatrixXd& basis, Index shift)
      : slopes_(slopes), basis_(basis), parts_(basis.cols() * slopes.cols(), slopes.rows() / 2 + 1) {
    const Index half = slopes.rows() / 2;
    parts_.col(0).setZero();
    for (Index k = 0; k < half; ++k) parts_.col(k + 1) = parts_.col(k) + Part(k, (k + shift + half) % half);
  }

  /// What the slopes of an entry are in the place of another one.
  [[nodiscard]] Eigen::VectorXd Part(Index place, Index entry) const {
    const Index half = slopes_.rows() / 2;
    Eigen::MatrixXd part = basis_.row(place).transpose() * slopes_.row(entry);
    part += basis_.row(half + place).transpose() * slopes_.row(half + entry);
    return part.reshaped();
  }

  /// From one entry on, up to another, which is left out.
  [[nodiscard]] auto Between(Index first, Index end) const { return parts_.col(end) - parts_.col(first); }

 private:
  const Fields& slopes_;
  const Eigen::MatrixXd& basis_;
  Eigen::MatrixXd parts_;
};

}  // namespace

std::vector<Slide> FindSlides(const Fields& slopes, const SlopeSpace& gradients, const Lattice& lattice,
                              const std::vector<std::size_t>& used) {
  constexpr double kLeast = 0.04;  // of good calibrations up to 0.002
  const Fields sample = Sample(slopes, kSumsSlid);
  const Eigen::MatrixXd basis = gradients.Basis();
  const Sums in_place(sample, basis, 0);
  const Sums from_next(sample, basis, 1);
  const Sums from_previous(sample, basis, -1);
  const Eigen::VectorXd all = in_place.Between(0, sample.rows() / 2);
  const double rest = sample.squaredNorm() - all.squaredNorm();
  if (!(rest > 0.0)) return {};
  const std::vector<std::size_t> ends = EndsOfRuns(lattice, used);
  std::vector<Slide> slides;
  Eigen::VectorXd moved;
  for (std::size_t i = 0; i < ends.size(); ++i) {
    for (std::size_t j = i + 1; j < ends.size(); ++j) {
      const auto first = static_cast<Index>(ends[i]);
      const auto last = static_cast<Index>(ends[j]);
      for (const bool is_late : {false, true}) {
        moved = all - in_place.Between(first, last + 1);
        if (is_late) {
          moved += from_next.Between(first, last) + in_place.Part(last, first);
        } else {
          moved += from_previous.Between(first + 1, last + 1) + in_place.Part(first, last);
        }
        const double gain = (moved.squaredNorm() - all.squaredNorm()) / rest;
        if (gain > kLeast) slides.push_back({ends[i], ends[j], is_late, gain});
      }
    }
  }
  std::ranges::stable_sort(slides, std::greater(), &Slide::gain);
  return slides;
}

std::vector<MovedFlag> MovedFlags(const std::vector<Slide>& slides, const CalibrationContent& content,
                                  const Lattice& lattice) {
  constexpr std::size_t kTried = 8;  // the best of them may be a row farther on than the right one
  constexpr std::size_t kTold = 3;
  constexpr int kCoarse = 8;        // degree
  constexpr double kAsNear = 1.03;  // times what is no gradient
  const std::vector<std::size_t> used = UsedIndices(content.used);
  const NumbersByPlace numbers = NumbersOf(lattice, used);
  const auto is_at_rim = [&](std::size_t i) {
    const auto& [row, column] = lattice.places[i];
    return numbers.contains({row - 1, column}) || numbers.contains({row + 1, column}) ||
           numbers.contains({row, column - 1}) || numbers.contains({row, column + 1});
  };
  std::set<MovedFlag> tried;
  for (const Slide& slide : std::span(slides).first(std::min(kTried, slides.size()))) {
    const std::size_t next = slide.is_late ? slide.first : slide.last + 1;  // after the one that is left over
    const std::size_t end = next < used.size() ? used[next] : content.rois.size();
    for (std::size_t i = next > 0 ? used[next - 1] + 1 : 0; i < end; ++i) {
      if (is_at_rim(i)) tried.insert({used[slide.is_late ? slide.last : slide.first], i});
    }
  }
  const Fields sample = Sample(content.m2s);
  std::vector<std::pair<double, MovedFlag>> found;
  for (const MovedFlag& flag : tried) {
    UsageFlags flags = content.used;
    PutBack(flag, flags);
    const double share = SlopeSpace::OfGradients(content.rois, UsedIndices(flags), kCoarse).Share(sample);
    found.emplace_back(1.0 - share, flag);
  }
  std::ranges::sort(found);
  std::vector<MovedFlag> nearest;
  for (const auto& [rest, flag] : found) {
    if (nearest.size() < kTold && rest < kAsNear * found.front().first) nearest.push_back(flag);
  }
  return nearest;
}

void PutBack(const MovedFlag& flag, UsageFlags& flags) {
  flags[flag.dark] = 0;
  flags[flag.lit] = 1;
}

}  // namespace quen::workbench
