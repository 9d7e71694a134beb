#include "workbench/check/src/check_modes.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "common/statistics/quantile.hpp"
#include "workbench/check/src/check_inverse.hpp"
#include "workbench/sensor/matrices.hpp"

namespace quen::workbench {
namespace {

using Modes = std::vector<Eigen::Index>;

double MedianOf(const Eigen::VectorXd& values) { return quen::common::UpperMedian({values.begin(), values.end()}); }

// --- Shares of the modes' mean squares

/// What of the slopes changes smoothly along either axis, each by itself.
Eigen::VectorXd SmoothShares(const Matrix& m2s, const SlopeSpace& surfaces) {
  const Matrix slopes = ColumnsOfLengthOne(m2s);
  const Eigen::Index half = slopes.rows() / 2;
  const auto smooth = [&](const Matrix& block) -> Eigen::VectorXd {
    return surfaces.Shares(block).cwiseProduct(block.colwise().squaredNorm().transpose());
  };
  return smooth(slopes.topRows(half)) + smooth(slopes.bottomRows(half));
}

/// Three by three sub-apertures, all of them used, by their numbers in the list of the used ones; row by row.
using Block = std::array<Eigen::Index, 9>;

std::vector<Block> BlocksOf(const Lattice& lattice, const std::vector<std::size_t>& used) {
  const NumbersByPlace numbers = NumbersOf(lattice, used);
  const auto block_around = [&](const Place& middle) -> std::optional<Block> {
    Block block{};
    for (int k = 0; k < 9; ++k) {
      const auto found = numbers.find({.row = middle.row + k / 3 - 1, .column = middle.column + k % 3 - 1});
      if (found == numbers.end()) return std::nullopt;
      block.at(static_cast<std::size_t>(k)) = static_cast<Eigen::Index>(found->second);
    }
    return block;
  };
  std::vector<Block> blocks;
  for (const auto& [place, number] : numbers) {
    if (const auto block = block_around(place)) blocks.push_back(*block);
  }
  return blocks;
}

// --- Findings

/// Modes of which something is so.
Finding OfModes(Verdict verdict, const char* key, const std::string& text, const std::string& advice,
                const Modes& modes) {
  return {verdict, key, "M2S modes", text, advice, {}, {modes.begin(), modes.end()}};
}

/// What is seen of the modes: shares of each one's mean square.
struct Shares {
  Eigen::VectorXd gradient;  ///< of a smooth surface
  Eigen::VectorXd curl;      ///< as smooth, and no gradient; of slopes without order 0.08
  Eigen::VectorXd noise;
};

/// Modes to be told of, of which each is told once.
struct OddModes {
  Modes zero;
  Modes no_gradients;
  Modes without_order;
  Modes noisy;
};

OddModes Sorted(const Matrix& m2s, const Shares& shares) {
  constexpr double kOthers = 0.6;
  constexpr double kCurl = 0.2;
  constexpr double kNoOrder = 0.35;
  constexpr double kNoisy = 0.3;
  constexpr double kNoisier = 3.0;  // than the others
  const bool have_order = MedianOf(shares.gradient) > kOthers;
  const double others_curl = MedianOf(shares.curl);
  const double others_noise = MedianOf(shares.noise);
  OddModes odd;
  for (Eigen::Index mode = 0; mode < m2s.cols(); ++mode) {
    const double noise = shares.noise(mode);
    if (m2s.col(mode).isZero(0.0)) {
      odd.zero.push_back(mode);
    } else if (have_order && shares.curl(mode) > others_curl + kCurl) {
      odd.no_gradients.push_back(mode);
    } else if (have_order && noise > kNoisy && noise > kNoisier * others_noise) {
      (shares.gradient(mode) < kNoOrder ? odd.without_order : odd.noisy).push_back(mode);
    }
  }
  return odd;
}

void AddModes(const Matrix& m2s, const Shares& shares, Findings& findings) {
  const auto [zero, no_gradients, without_order, noisy] = Sorted(m2s, shares);
  for (const auto& [first, second] : SameDirections(m2s)) {
    findings.push_back(OfModes(
        Verdict::kWrong, "m2s.modes",
        fmt::format("the slopes of mode {} are those of mode {} once more", second, first),
        "measure, or compute, the mode that belongs there: no control matrix can tell them apart", {second, first}));
  }
  if (!zero.empty()) {
    findings.push_back(
        OfModes(Verdict::kWrong, "m2s.modes",
                fmt::format("{} {} no spot (columns of zeros)", ModeWords(zero), zero.size() == 1 ? "moves" : "move"),
                "measure again, or leave out what moves nothing: no control matrix can see it", zero));
  }
  if (!no_gradients.empty()) {
    findings.push_back(
        OfModes(Verdict::kWrong, "m2s.modes",
                fmt::format("the slopes of {} are smooth and no wavefront's, those of the others are a wavefront's",
                            ModeWords(no_gradients)),
                "write these in the layout of the others, or measure them again", no_gradients));
  }
  if (!without_order.empty()) {
    findings.push_back(OfModes(
        Verdict::kWrong, "m2s.modes",
        fmt::format("the slopes of {} are without order, those of the others are not", ModeWords(without_order)),
        "measure these again", without_order));
  }
  if (!noisy.empty()) {
    findings.push_back(OfModes(
        Verdict::kDoubtful, "m2s.noise",
        fmt::format(
            "{:.0f} % of the slopes of {} are noise, or details of a few sub-apertures; of the others' {:.0f} %",
            100.0 * shares.noise(noisy.front()), ModeWords(noisy), 100.0 * MedianOf(shares.noise)),
        "measure these again, longer or with a larger amplitude; if they are so fine, nothing is to be done", noisy));
  }
}

}  // namespace

/// The sum over a block with the weights (1, -2, 1) along either axis has the variance of white noise times the sum of
/// their squares, 36; of slopes that change along a parabola at most, it is zero.
Eigen::VectorXd NoiseShares(const Matrix& m2s, const Lattice& lattice, const std::vector<std::size_t>& used) {
  constexpr std::array<double, 9> kWeights = {1.0, -2.0, 1.0, -2.0, 4.0, -2.0, 1.0, -2.0, 1.0};
  constexpr double kSquares = 36.0;
  const Matrix slopes = ColumnsOfLengthOne(m2s);
  const Eigen::Index half = slopes.rows() / 2;
  const std::vector<Block> blocks = BlocksOf(lattice, used);
  if (blocks.empty()) return Eigen::VectorXd::Zero(slopes.cols());
  Eigen::RowVectorXd squares = Eigen::RowVectorXd::Zero(slopes.cols());
  for (const Block& block : blocks) {
    for (const Eigen::Index first : {Eigen::Index{0}, half}) {
      Eigen::RowVectorXd sum = Eigen::RowVectorXd::Zero(slopes.cols());
      for (std::size_t k = 0; k < block.size(); ++k) sum += kWeights.at(k) * slopes.row(first + block.at(k));
      squares += sum.cwiseAbs2();
    }
  }
  const double variances = 2.0 * static_cast<double>(blocks.size()) * kSquares;
  return static_cast<double>(slopes.rows()) / variances * squares.transpose();
}

Findings CheckModes(const Matrix& m2s, const SlopeSpace& gradients, const SlopeSpace& surfaces, const Lattice& lattice,
                    const std::vector<std::size_t>& used) {
  const Eigen::VectorXd gradient = gradients.Shares(m2s);
  Findings findings;
  AddModes(m2s, {gradient, SmoothShares(m2s, surfaces) - gradient, NoiseShares(m2s, lattice, used)}, findings);
  return findings;
}

}  // namespace quen::workbench
