#include "workbench/check/src/slide.hpp"

namespace quen::workbench {
namespace {

using Eigen::Index;

/// The places where the list goes from one row of neighbours to the next: the first and the last of each.
std::vector<std::size_t> EndsOfRuns(const Lattice& lattice, const std::vector<std::size_t>& used) {
  const auto is_next = [&](std::size_t k) {
    const Place& before = lattice.places[used[k - 1]];
    const Place& after = lattice.places[used[k]];
    return before.row == after.row && after.column - before.column == 1;
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

std::optional<Slide> FindSlide(const Fields& slopes, const SlopeSpace& gradients, const Lattice& lattice,
                               const std::vector<std::size_t>& used) {
  constexpr double kLeast = 0.04;  // of good calibrations up to 0.002
  constexpr Index kSums = 2;
  const Fields sample = Sample(slopes, kSums);
  const Eigen::MatrixXd basis = gradients.Basis();
  const Sums in_place(sample, basis, 0);
  const Sums from_next(sample, basis, 1);
  const Sums from_previous(sample, basis, -1);
  const Eigen::VectorXd all = in_place.Between(0, sample.rows() / 2);
  const double rest = sample.squaredNorm() - all.squaredNorm();
  if (!(rest > 0.0)) return std::nullopt;
  const std::vector<std::size_t> ends = EndsOfRuns(lattice, used);
  Slide best = {.gain = kLeast};
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
        if (gain > best.gain) best = {ends[i], ends[j], is_late, gain};
      }
    }
  }
  if (best.last == 0) return std::nullopt;
  return best;
}

}  // namespace quen::workbench
