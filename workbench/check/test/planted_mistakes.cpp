#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <numeric>
#include <random>
#include <utility>

#include "workbench/check/test/planted.hpp"
#include "workbench/sensor/dimensions.hpp"

namespace quen::workbench::planted {
namespace {

using Content = CalibrationContent;
using Eigen::Index;
using Permutation = std::vector<Index>;

constexpr Index kSlopes = 2 * kUsed;

// --- Slopes in another order, and with other factors

/// Slope s of what is mistaken is factor(s) times slope from[s] of what is right.
struct SlopeMap {
  Permutation from;
  Eigen::VectorXd factor;
};

SlopeMap Identity() {
  SlopeMap map = {Permutation(kSlopes), Eigen::VectorXd::Ones(kSlopes)};
  std::iota(map.from.begin(), map.from.end(), Index{0});
  return map;
}

Matrix Mapped(const Matrix& slopes, const SlopeMap& map) {
  Matrix mapped(slopes.rows(), slopes.cols());
  for (Index s = 0; s < slopes.rows(); ++s) {
    mapped.row(s) = map.factor(s) * slopes.row(map.from[static_cast<std::size_t>(s)]);
  }
  return mapped;
}

SlopeMap Inverse(const SlopeMap& map) {
  SlopeMap inverse = Identity();
  for (Index s = 0; s < kSlopes; ++s) {
    const Index from = map.from[static_cast<std::size_t>(s)];
    inverse.from[static_cast<std::size_t>(from)] = s;
    inverse.factor(from) = 1.0 / map.factor(s);
  }
  return inverse;
}

/// In both matrices so that they still are each other's inverse.
void Map(Content& content, Place place, const SlopeMap& map) {
  if (place != Place::kCm) content.m2s = Mapped(content.m2s, map);
  if (place == Place::kM2s) return;
  const SlopeMap of_cm = place == Place::kBoth ? SlopeMap{map.from, map.factor.cwiseInverse()} : map;
  content.cm = Mapped(content.cm.transpose(), of_cm).transpose();
}

Mistake OfSlopes(const std::string& word, const std::string& detail, Place place,
                 const std::function<SlopeMap(const Content&)>& map) {
  return {.word = word,
          .detail = detail,
          .place = place,
          .Plant = [=](Content& content) { Map(content, place, map(content)); },
          .Undo = [=](Content& content) { Map(content, place, Inverse(map(content))); }};
}

SlopeMap Blocks(double y_factor, double x_factor) {
  SlopeMap map = Identity();
  map.factor.head(kUsed) *= y_factor;
  map.factor.tail(kUsed) *= x_factor;
  return map;
}

SlopeMap ExchangedBlocks() {
  SlopeMap map = Identity();
  std::rotate(map.from.begin(), map.from.begin() + kUsed, map.from.end());
  return map;
}

SlopeMap Pairs(Index first_block, Index second_block) {
  SlopeMap map = Identity();
  for (Index k = 0; k < kUsed; ++k) {
    map.from[static_cast<std::size_t>(2 * k)] = first_block + k;
    map.from[static_cast<std::size_t>(2 * k + 1)] = second_block + k;
  }
  return map;
}

/// The used sub-apertures in another order of the list of all, which `key` gives.
using Key = std::pair<Index, Index> (*)(Index row, Index column);

SlopeMap Listed(const Content& content, Key key) {
  Permutation cells;
  for (std::size_t i = 0; i < content.used.size(); ++i) {
    if (content.used[i] != 0) cells.push_back(static_cast<Index>(i));
  }
  Permutation order(cells.size());
  std::iota(order.begin(), order.end(), Index{0});
  std::ranges::sort(order, {}, [&](Index k) {
    const Index cell = cells[static_cast<std::size_t>(k)];
    return key(cell / kAcross, cell % kAcross);
  });
  SlopeMap map = Identity();
  for (std::size_t k = 0; k < order.size(); ++k) {
    map.from[k] = order[k];
    map.from[k + kUsed] = kUsed + order[k];
  }
  return map;
}

Permutation Shuffled(Index size, unsigned seed) {
  Permutation order(static_cast<std::size_t>(size));
  std::iota(order.begin(), order.end(), Index{0});
  std::shuffle(order.begin(), order.end(), std::mt19937(seed));
  return order;
}

// --- Modes

Matrix RowsFrom(const Matrix& matrix, const Permutation& from) {
  Matrix rows(matrix.rows(), matrix.cols());
  for (Index row = 0; row < matrix.rows(); ++row) rows.row(row) = matrix.row(from[static_cast<std::size_t>(row)]);
  return rows;
}

/// Mode m of what is mistaken is mode from[m] of what is right.
void PermuteModes(Content& content, Place place, const Permutation& from) {
  if (place == Place::kM2s) content.m2s = RowsFrom(content.m2s.transpose(), from).transpose();
  if (place == Place::kCm) content.cm = RowsFrom(content.cm, from);
}

Permutation InverseOf(const Permutation& from) {
  Permutation inverse(from.size());
  for (std::size_t k = 0; k < from.size(); ++k) inverse[static_cast<std::size_t>(from[k])] = static_cast<Index>(k);
  return inverse;
}

Mistake OfModes(const std::string& detail, Place place, const Permutation& from) {
  return {.word = "modes_permuted",
          .detail = detail,
          .place = place,
          .Plant = [=](Content& content) { PermuteModes(content, place, from); },
          .Undo = [=](Content& content) { PermuteModes(content, place, InverseOf(from)); }};
}

void Scale(Content& content, Place place, double factor) {
  if (place == Place::kM2s) content.m2s *= factor;
  if (place == Place::kCm) content.cm *= factor;
}

Mistake OfSign(const std::string& detail, Place place, const std::vector<Index>& modes) {
  const auto change = [=](Content& content) {
    for (const Index mode : modes) {
      if (place == Place::kM2s) content.m2s.col(mode) *= -1.0;
      if (place == Place::kCm) content.cm.row(mode) *= -1.0;
    }
  };
  return {.word = "modes_negative", .detail = detail, .place = place, .Plant = change, .Undo = change};
}

Matrix Noise(Index rows, Index columns, double rms, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<double> normal(0.0, rms);
  return Matrix::NullaryExpr(rows, columns, [&] { return normal(random); });
}

double Rms(const Matrix& matrix) { return matrix.norm() / std::sqrt(static_cast<double>(matrix.size())); }

Matrix TransposedInMemory(const Matrix& matrix) {
  const Matrix transposed = matrix.transpose();
  return Eigen::Map<const Matrix>(transposed.data(), matrix.rows(), matrix.cols());
}

Matrix FromTransposedInMemory(const Matrix& matrix) {
  return Eigen::Map<const Matrix>(matrix.data(), matrix.cols(), matrix.rows()).transpose();
}

Mistake Transposed(Place place) {
  const auto change = [place](Content& content, Matrix (*function)(const Matrix&)) {
    if (place != Place::kCm) content.m2s = function(content.m2s);
    if (place != Place::kM2s) content.cm = function(content.cm);
  };
  return {.word = "transposed_in_memory",
          .detail = "",
          .place = place,
          .Plant = [=](Content& content) { change(content, TransposedInMemory); },
          .Undo = [=](Content& content) { change(content, FromTransposedInMemory); }};
}

/// A mistake in M2S from which the control matrix was made, too.
std::function<void(Content&)> WithItsInverse(const std::function<void(Content&)>& change,
                                             const std::vector<Index>& modes, const std::vector<Index>& slopes) {
  return [=](Content& content) {
    change(content);
    Matrix sound(kSlopes, content.m2s.cols() - static_cast<Index>(modes.size()));
    Index column = 0;
    for (Index mode = 0; mode < content.m2s.cols(); ++mode) {
      if (std::ranges::count(modes, mode) == 0) sound.col(column++) = content.m2s.col(mode);
    }
    const Matrix inverse = PseudoInverse(sound);
    content.cm.setZero();
    Index row = 0;
    for (Index mode = 0; mode < content.m2s.cols(); ++mode) {
      if (std::ranges::count(modes, mode) == 0) content.cm.row(mode) = inverse.row(row++);
    }
    for (const Index slope : slopes) content.cm.col(slope).setZero();
  };
}

// --- Regions

Roi Shifted(const Roi& roi, int x_low, int x_up, int y_low, int y_up, double x_ref, double y_ref) {
  const auto bound = [](std::uint16_t value, int shift) { return static_cast<std::uint16_t>(value + shift); };
  return {bound(roi.x_low, x_low),
          bound(roi.x_up, x_up),
          bound(roi.y_low, y_low),
          bound(roi.y_up, y_up),
          roi.x_max,
          roi.y_max,
          roi.x_ref + x_ref,
          roi.y_ref + y_ref};
}

Mistake OfRegions(const std::string& word, const std::string& detail, std::array<int, 4> bounds, double x_ref,
                  double y_ref) {
  const auto change = [=](Content& content, int sign) {
    for (Roi& roi : content.rois) {
      roi = Shifted(roi, sign * bounds[0], sign * bounds[1], sign * bounds[2], sign * bounds[3], sign * x_ref,
                    sign * y_ref);
    }
  };
  return {.word = word,
          .detail = detail,
          .place = Place::kRegions,
          .Plant = [=](Content& content) { change(content, 1); },
          .Undo = [=](Content& content) { change(content, -1); }};
}

/// Without all but the lists of regions and flags in another order.
void ListRegions(Content& content, const Permutation& from) {
  const Content old = content;
  for (std::size_t i = 0; i < from.size(); ++i) {
    content.rois[i] = old.rois[static_cast<std::size_t>(from[i])];
    content.used[i] = old.used[static_cast<std::size_t>(from[i])];
  }
}

Mistake OfLists(const std::string& word, const std::string& detail, Index (*from)(Index row, Index column)) {
  Permutation order;
  for (Index i = 0; i < kAcross * kAcross; ++i) order.push_back(from(i / kAcross, i % kAcross));
  return {.word = word,
          .detail = detail,
          .place = Place::kRegions,
          .Plant = [=](Content& content) { ListRegions(content, order); },
          .Undo = [=](Content& content) { ListRegions(content, InverseOf(order)); }};
}

Mistake OfFlags(const std::string& detail, const std::function<std::vector<std::uint8_t>(const Content&)>& flags) {
  return {.word = "flags",
          .detail = detail,
          .place = Place::kFlags,
          .Plant = [=](Content& content) { content.used = flags(content); },
          .keys = {"flags.count", "flags.pupil", "m2s.layout", "cm.layout"},
          .words = {"flag", "pupil"}};
}

/// What cannot be corrected, and is named by a finding.
Mistake Lost(const std::string& detail, Place place, std::function<void(Content&)> plant, std::vector<std::string> keys,
             std::vector<std::string> words) {
  return {.word = "",
          .detail = detail,
          .place = place,
          .Plant = std::move(plant),
          .keys = std::move(keys),
          .words = std::move(words)};
}

Mistake Lost(Mistake mistake, std::vector<std::string> keys, std::vector<std::string> words) {
  mistake.keys = std::move(keys);
  mistake.words = std::move(words);
  return mistake;
}

}  // namespace

std::string Name(const Mistake& mistake) {
  constexpr std::array<const char*, 5> kPlaces = {"M2S", "CM", "both", "regions", "flags"};
  const std::string separator = mistake.word.empty() || mistake.detail.empty() ? "" : " ";
  return fmt::format("{}{}{} ({})", mistake.word, separator, mistake.detail,
                     kPlaces[static_cast<std::size_t>(mistake.place)]);
}

std::vector<Mistake> LayoutMistakes(Place place) {
  const auto listed = [place](const std::string& word, Key key) {
    return OfSlopes(word, "", place, [key](const Content& content) { return Listed(content, key); });
  };
  const auto fixed = [place](const std::string& word, const std::string& detail, const SlopeMap& map) {
    return OfSlopes(word, detail, place, [map](const Content&) { return map; });
  };
  std::vector<Mistake> mistakes = {
      fixed("exchanged", "", ExchangedBlocks()),
      fixed("x_flipped", "", Blocks(1.0, -1.0)),
      fixed("y_flipped", "", Blocks(-1.0, 1.0)),
      listed("mirrored_x", [](Index row, Index column) { return std::pair(row, -column); }),
      listed("mirrored_y", [](Index row, Index column) { return std::pair(-row, column); }),
      listed("turned_90", [](Index row, Index column) { return std::pair(-column, row); }),
      listed("turned_180", [](Index row, Index column) { return std::pair(-row, -column); }),
      listed("turned_270", [](Index row, Index column) { return std::pair(column, -row); }),
      listed("by_columns", [](Index row, Index column) { return std::pair(column, row); }),
      listed("by_columns_mirrored", [](Index row, Index column) { return std::pair(-column, -row); }),
      listed("serpentine", [](Index row, Index column) { return std::pair(row, row % 2 == 0 ? column : -column); }),
      listed("serpentine_columns",
             [](Index row, Index column) { return std::pair(column, column % 2 == 0 ? row : -row); }),
      fixed("interleaved_yx", "", Pairs(0, kUsed)),
      fixed("interleaved_xy", "", Pairs(kUsed, 0)),
      fixed("x_unit", "x 2", Blocks(1.0, 2.0)),
      fixed("x_unit", "x 0.5", Blocks(1.0, 0.5)),
      fixed("x_unit", "x 24", Blocks(1.0, 24.0)),
      fixed("x_unit", "x 1.3", Blocks(1.0, 1.3)),
      Transposed(place)};
  if (place != Place::kBoth) mistakes.push_back(fixed("negative", "", Blocks(-1.0, -1.0)));
  SlopeMap random = Identity();
  random.from = Shuffled(kSlopes, 11);
  mistakes.push_back(Lost(fixed("", "no order", random), {"m2s.layout", "cm.layout"}, {"order"}));
  mistakes.back().Undo = {};
  return mistakes;
}

std::vector<Mistake> BeginningMistakes() {
  std::vector<Mistake> mistakes;
  for (const Place place : {Place::kM2s, Place::kCm, Place::kBoth}) {
    for (const Index further_on : {-3, -2, -1, 1, 2, 3}) {
      SlopeMap map = Identity();
      for (Index s = 0; s < kSlopes; ++s) {
        const Index first = s < kUsed ? 0 : kUsed;
        map.from[static_cast<std::size_t>(s)] = first + (s - first + further_on + kUsed) % kUsed;
      }
      const auto always = [map](const Content&) { return map; };
      mistakes.push_back(OfSlopes("begins_elsewhere", fmt::format("{:+}", further_on), place, always));
    }
  }
  return mistakes;
}

std::vector<Mistake> MatrixMistakes() {
  Permutation reversed(52);
  std::iota(reversed.rbegin(), reversed.rend(), Index{0});
  Permutation shifted(52);
  std::iota(shifted.begin(), shifted.end(), Index{0});
  Permutation neighbours = shifted;
  std::swap(neighbours[16], neighbours[17]);
  std::rotate(shifted.begin(), shifted.begin() + 1, shifted.end());

  std::vector<Mistake> mistakes;
  for (const Place place : {Place::kM2s, Place::kCm}) {
    mistakes.push_back(OfModes("reversed", place, reversed));
    mistakes.push_back(OfModes("shifted", place, shifted));
    mistakes.push_back(OfModes("two exchanged", place, neighbours));
    mistakes.push_back(OfModes("shuffled", place, Shuffled(52, 12)));
    mistakes.push_back(OfSign("one", place, {17}));
    mistakes.push_back(OfSign("five", place, {0, 1, 5, 31, 44}));
    for (const double factor : {2.0, 2.0 * std::numbers::pi, 1000.0, 1e-3}) {
      mistakes.push_back({.word = "scaled",
                          .detail = fmt::format("x {:.4g}", factor),
                          .place = place,
                          .Plant = [=](Content& c) { Scale(c, place, factor); },
                          .Undo = [=](Content& c) { Scale(c, place, 1.0 / factor); }});
    }
  }
  mistakes.push_back({.word = "is_m2s", .detail = "transposed", .place = Place::kCm, .Plant = [](Content& c) {
                        c.cm = c.m2s.transpose();
                      }});
  mistakes.push_back({.word = "is_m2s", .detail = "as it is in memory", .place = Place::kCm, .Plant = [](Content& c) {
                        c.cm = Eigen::Map<const Matrix>(c.m2s.data(), c.cm.rows(), c.cm.cols()).eval();
                      }});
  mistakes.push_back({.word = "is_cm", .detail = "transposed", .place = Place::kM2s, .Plant = [](Content& c) {
                        c.m2s = c.cm.transpose();
                      }});
  mistakes.push_back({.word = "is_cm", .detail = "as it is in memory", .place = Place::kM2s, .Plant = [](Content& c) {
                        c.m2s = Eigen::Map<const Matrix>(c.cm.data(), c.m2s.rows(), c.m2s.cols()).eval();
                      }});

  const auto other = [](Modes modes) { return Made({.modes = modes, .seed = 77}).cm; };
  for (const Modes modes : {Modes::kHexagonalMirror, Modes::kFourier}) {
    mistakes.push_back(Lost(modes == Modes::kFourier ? "of Fourier modes" : "of another mirror", Place::kCm,
                            [=](Content& c) { c.cm = other(modes); }, {"cm.inverse"}, {"of other modes"}));
  }
  const std::vector<std::string> layouts = {"m2s.layout", "cm.layout", "m2s.modes", "cm.inverse"};
  const std::vector<std::string> noise = {"order", "noise"};
  mistakes.push_back(Lost(
      "noise", Place::kCm, [](Content& c) { c.cm = Noise(52, kSlopes, Rms(c.cm), 13); }, layouts, noise));
  mistakes.push_back(Lost(
      "noise", Place::kM2s, [](Content& c) { c.m2s = Noise(kSlopes, 52, Rms(c.m2s), 14); }, layouts, noise));
  mistakes.push_back(Lost(
      "noise", Place::kBoth,
      [](Content& c) {
        c.m2s = Noise(kSlopes, 52, Rms(c.m2s), 15);
        c.cm = PseudoInverse(c.m2s);
      },
      layouts, noise));

  constexpr Index kFailed = 37;
  const auto fail = [](Content& c) { c.m2s.col(kFailed).setZero(); };
  const auto blur = [](Content& c) { c.m2s.col(kFailed) = Noise(kSlopes, 1, Rms(c.m2s.col(kFailed)), 16); };
  const std::vector<std::string> number = {"37"};
  const auto single = [&](const std::string& word, Place place, const std::function<void(Content&)>& plant,
                          const std::string& key, const std::vector<std::string>& words,
                          const std::string& detail = "") {
    mistakes.push_back({.word = word, .detail = detail, .place = place, .Plant = plant, .keys = {key}, .words = words});
  };
  single("failed_mode", Place::kM2s, fail, "m2s.modes", number);
  single("failed_mode", Place::kBoth, WithItsInverse(fail, {kFailed}, {}), "m2s.modes", number);
  single("noisy_mode", Place::kM2s, blur, "m2s.modes", number);
  single("noisy_mode", Place::kBoth, WithItsInverse(blur, {}, {}), "m2s.modes", number);
  constexpr Index kDead = 233;  // of the used ones
  const auto die = [](Content& c) {
    c.m2s.row(kDead).setZero();
    c.m2s.row(kUsed + kDead).setZero();
  };
  const std::vector<std::string> place = {"233", "sub-aperture"};
  single("dead_subaperture", Place::kM2s, die, "m2s.subapertures", place);
  single("dead_subaperture", Place::kBoth, WithItsInverse(die, {}, {kDead, kUsed + kDead}), "m2s.subapertures", place);

  const auto of_rows = [](const std::function<void(Eigen::Ref<Matrix>)>& change) {
    return [change](Content& c) {
      change(c.m2s.topRows(kUsed));
      change(c.m2s.bottomRows(kUsed));
    };
  };
  constexpr Index kOther = 150;
  const auto scatter =
      of_rows([](Eigen::Ref<Matrix> block) { block.row(kDead) = Noise(1, block.cols(), Rms(block), 18); });
  single("noisy_subaperture", Place::kM2s, scatter, "m2s.subapertures", {"neighbours"});
  single("noisy_subaperture", Place::kBoth, WithItsInverse(scatter, {}, {}), "m2s.subapertures", {"neighbours"});
  for (const double factor : {20.0, -1.0}) {
    const auto scale = of_rows([factor](Eigen::Ref<Matrix> block) { block.row(kDead) *= factor; });
    const std::string detail = fmt::format("x {}", factor);
    single("scaled_subaperture", Place::kM2s, scale, "m2s.subapertures", {"times what"}, detail);
    single("scaled_subaperture", Place::kBoth, WithItsInverse(scale, {}, {}), "m2s.subapertures", {"times what"},
           detail);
  }
  const auto exchange = of_rows([](Eigen::Ref<Matrix> block) { block.row(kDead).swap(block.row(kOther)); });
  mistakes.push_back(
      {.word = "subapertures_exchanged", .detail = "", .place = Place::kM2s, .Plant = exchange, .Undo = exchange});
  const auto exchange_both = [exchange](Content& c) {
    exchange(c);
    for (const Index first : {Index{0}, kUsed}) c.cm.col(first + kDead).swap(c.cm.col(first + kOther));
  };
  mistakes.push_back({.word = "subapertures_exchanged",
                      .detail = "",
                      .place = Place::kBoth,
                      .Plant = exchange_both,
                      .Undo = exchange_both});

  constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
  mistakes.push_back(Lost("all zero", Place::kM2s, [](Content& c) { c.m2s.setZero(); }, {"m2s.values"}, {"zero", "0"}));
  mistakes.push_back(Lost("all zero", Place::kCm, [](Content& c) { c.cm.setZero(); }, {"cm.values"}, {"zero", "0"}));
  mistakes.push_back(Lost("no number", Place::kM2s, [=](Content& c) { c.m2s(17, 3) = kNan; }, {"m2s.values"}, {"nan"}));
  mistakes.push_back(Lost("no number", Place::kCm, [=](Content& c) { c.cm(2, 5) = kNan; }, {"cm.values"}, {"nan"}));
  mistakes.push_back(
      Lost("a value of 1e30", Place::kM2s, [](Content& c) { c.m2s(17, 3) = 1e30; }, {"m2s.values"}, {"e+30"}));
  mistakes.push_back(
      Lost("a value of 1e30", Place::kCm, [](Content& c) { c.cm(2, 5) = 1e30; }, {"cm.values"}, {"e+30"}));

  const auto disturb = [](Content& c) { c.m2s.col(kFailed) += Noise(kSlopes, 1, Rms(c.m2s.col(kFailed)), 17); };
  single("mode_of_half_noise", Place::kM2s, disturb, "m2s.noise", number);
  single("mode_of_half_noise", Place::kBoth, WithItsInverse(disturb, {}, {}), "m2s.noise", number);
  const auto flip = [](Content& c) { c.m2s.col(kFailed).tail(kUsed) *= -1.0; };
  single("mode_x_flipped", Place::kM2s, flip, "m2s.modes", number);
  single("mode_x_flipped", Place::kBoth, WithItsInverse(flip, {}, {}), "m2s.modes", number);
  const auto lame = [](Content& c) { c.m2s.row(kUsed + kDead).setZero(); };
  single("lame_subaperture", Place::kBoth, WithItsInverse(lame, {}, {kUsed + kDead}), "m2s.subapertures", place);
  const auto repeat = [](Content& c) { c.m2s.col(kFailed) = c.m2s.col(12); };
  single("repeated_mode", Place::kM2s, repeat, "m2s.modes", number);
  single("repeated_mode", Place::kBoth, WithItsInverse(repeat, {kFailed}, {}), "m2s.modes", number);
  single(
      "row_twice", Place::kCm, [](Content& c) { c.cm.row(kFailed) = c.cm.row(12); }, "cm.inverse", number);
  return mistakes;
}

std::vector<Mistake> RegionMistakes() {
  std::vector<Mistake> mistakes;
  for (const double shift : {0.5, -0.5, 1.0, -1.0}) {
    const std::string word = std::abs(shift) < 0.75 ? "half_pixel" : "one_pixel";
    mistakes.push_back(OfRegions(word, fmt::format("x {:+}", shift), {}, shift, 0.0));
    mistakes.push_back(OfRegions(word, fmt::format("y {:+}", shift), {}, 0.0, shift));
    mistakes.push_back(OfRegions(word, fmt::format("x and y {:+}", shift), {}, shift, shift));
  }
  mistakes.push_back(OfRegions("counted_from_1", "bounds", {1, 1, 1, 1}, 0.0, 0.0));
  mistakes.push_back(OfRegions("inclusive_bounds", "", {0, -1, 0, -1}, 0.0, 0.0));
  mistakes.push_back(
      OfLists("by_columns", "list of regions", [](Index row, Index column) { return kAcross * column + row; }));
  mistakes.push_back(OfLists("mirrored_x", "list of regions",
                             [](Index row, Index column) { return kAcross * row + (kAcross - 1 - column); }));
  mistakes.push_back(OfLists("mirrored_y", "list of regions",
                             [](Index row, Index column) { return kAcross * (kAcross - 1 - row) + column; }));

  const auto of_pupil = [](const Pupil& pupil) {
    return [pupil](const Content& content) {
      const auto& flags = Made({.pupil = pupil}).used;
      return flags == content.used ? Made({.pupil = {.name = "none", .obscuration = 0.45}}).used : flags;
    };
  };
  mistakes.push_back(OfFlags("of a round pupil", of_pupil({.name = "round", .obscuration = 0.0})));
  mistakes.push_back(OfFlags("of an annular pupil", of_pupil({.name = "annular"})));
  mistakes.push_back(
      OfFlags("of a spider", of_pupil({.name = "wide spider", .spider_width = 1.2, .spider_angle = 40.0})));
  for (const int change : {-1, 1}) {
    mistakes.push_back(Lost(change < 0 ? "606" : "608", Place::kFlags,
                            [=](Content& c) {
                              const auto first = std::ranges::find(c.used, change < 0 ? 1 : 0);
                              *first = change < 0 ? 0 : 1;
                            },
                            {"flags.count"}, {change < 0 ? "606" : "608"}));
  }

  const auto region = [&](const std::string& detail, const std::function<Roi(const Roi&)>& change,
                          const std::vector<std::string>& keys) {
    mistakes.push_back(
        Lost(detail, Place::kRegions, [=](Content& c) { c.rois[500] = change(c.rois[500]); }, keys, {""}));
  };
  region("reference outside", [](const Roi& roi) { return Shifted(roi, 0, 0, 0, 0, 0.0, 60.0); },
         {"references.inside"});
  region("reference no number",
         [](const Roi& roi) { return Shifted(roi, 0, 0, 0, 0, std::numeric_limits<double>::quiet_NaN(), 0.0); },
         {"references.inside"});
  region("empty region", [](const Roi& roi) { return Shifted(roi, 0, -roi.width, 0, 0, 0.0, 0.0); },
         {"regions.bounds", "regions.coverage"});
  region("wide region", [](const Roi& roi) { return Shifted(roi, -9, 9, 0, 0, 0.0, 0.0); },
         {"regions.bounds", "regions.coverage"});
  return mistakes;
}

std::vector<Mistake> AllMistakes() {
  std::vector<Mistake> all;
  for (const auto& some : {LayoutMistakes(Place::kM2s), LayoutMistakes(Place::kCm), LayoutMistakes(Place::kBoth),
                           BeginningMistakes(), MatrixMistakes(), RegionMistakes()}) {
    all.insert(all.end(), some.begin(), some.end());
  }
  return all;
}

}  // namespace quen::workbench::planted
