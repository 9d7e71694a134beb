#include "workbench/check/src/check_inverse.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <Eigen/Eigenvalues>
#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <utility>

#include "common/statistics/quantile.hpp"
#include "workbench/sensor/matrices.hpp"

namespace quen::workbench {
namespace {

constexpr const char* kSubject = "CM * M2S";
constexpr const char* kRemake = "compute CM.fits anew from this M2S.fits: its pseudo-inverse";

constexpr const char* kOtherModes = "other_modes";
constexpr const char* kRowTwice = "row_twice";

using Modes = std::vector<Eigen::Index>;

Correction Remade(const char* mistake) {
  return {mistake, [](CalibrationContent& content) { content.cm = PseudoInverse(content.m2s); }};
}

/// What the control matrix makes of each mode: row m is its estimate of mode m.
struct Response {
  Response(const Matrix& m2s, const Matrix& cm) : product(cm * m2s) {
    const Eigen::VectorXd sizes = cm.cwiseAbs().rowwise().maxCoeff();
    for (Eigen::Index mode = 0; mode < cm.rows(); ++mode) {
      (sizes(mode) > kNothing * sizes.maxCoeff() ? controlled : left_out).push_back(mode);
    }
  }

  /// Of the controlled modes alone.
  [[nodiscard]] Matrix Controlled() const {
    const auto size = static_cast<Eigen::Index>(controlled.size());
    return Matrix::NullaryExpr(size, size, [this](Eigen::Index row, Eigen::Index column) {
      return product(controlled[static_cast<std::size_t>(row)], controlled[static_cast<std::size_t>(column)]);
    });
  }

  static constexpr double kNothing = 1e-9;  // of the largest row

  Matrix product;
  Modes controlled;
  Modes left_out;
};

/// A response in which each row has one element that stands out: of which mode, how large, and how much else there is.
struct Assignment {
  explicit Assignment(const Response& response) : source(static_cast<std::size_t>(response.product.rows()), -1) {
    Modes taken;
    for (const Eigen::Index row : response.controlled) {
      Eigen::Index column = 0;
      response.product.row(row).cwiseAbs().maxCoeff(&column);
      const double gain = response.product(row, column);
      double rest = 0.0;
      for (const Eigen::Index other : response.controlled) {
        if (other != column) rest += response.product(row, other) * response.product(row, other);
      }
      worst_rest = std::max(worst_rest, std::sqrt(rest) / std::abs(gain));
      source[static_cast<std::size_t>(row)] = column;
      gains.push_back(gain);
      taken.push_back(column);
    }
    std::ranges::sort(taken);
    is_one_to_one = std::ranges::adjacent_find(taken) == taken.end();
  }

  [[nodiscard]] bool IsInOrder() const {
    for (std::size_t row = 0; row < source.size(); ++row) {
      if (source[row] >= 0 && source[row] != static_cast<Eigen::Index>(row)) return false;
    }
    return true;
  }

  [[nodiscard]] double LeastGain() const { return std::abs(std::ranges::min(gains, {}, Size)); }
  [[nodiscard]] double MostGain() const { return std::abs(std::ranges::max(gains, {}, Size)); }
  [[nodiscard]] double TypicalGain() const {
    std::vector<double> sizes;
    for (const double gain : gains) sizes.push_back(std::abs(gain));
    return quen::common::UpperMedian(std::move(sizes));
  }
  static double Size(double gain) { return std::abs(gain); }

  Modes source;               ///< the mode that stands out in each row; -1 where the row is zero
  std::vector<double> gains;  ///< of the controlled modes
  double worst_rest = 0.0;
  bool is_one_to_one = false;
};

/// Ratio of the largest singular value to the smallest, from the eigenvalues of the columns' products: good to 1e7.
double ConditionNumber(const Matrix& m2s) {
  const Matrix scaled = m2s / m2s.cwiseAbs().maxCoeff();  // squares of what a file holds may be no numbers
  const Eigen::MatrixXd products = scaled.transpose() * scaled;
  const Eigen::VectorXd squares = EigensystemOf(products).values;
  constexpr double kRounding = 1e-15;
  const double most = squares(squares.size() - 1);
  return squares(0) > kRounding * most ? std::sqrt(most / squares(0)) : std::numeric_limits<double>::infinity();
}

// --- Findings

std::string LeftOut(const Response& response) {
  if (response.left_out.empty()) return {};
  return fmt::format("; {} {} not controlled (rows of zeros)", ModeWords(response.left_out),
                     response.left_out.size() == 1 ? "is" : "are");
}

/// Signs of single modes, or of all.
void AddSigns(const Response& response, const Assignment& modes, Findings& findings) {
  Modes negative;
  for (std::size_t k = 0; k < modes.gains.size(); ++k) {
    if (modes.gains[k] < 0.0) negative.push_back(response.controlled[k]);
  }
  if (negative.empty()) return;
  if (negative.size() == response.controlled.size()) {
    findings.push_back({Verdict::kWrong,
                        "cm.sign",
                        kSubject,
                        "the sign of one of the two is flipped throughout",
                        "multiply the one that is wrong by -1: a loop with either of them runs away",
                        {{"negative", [](CalibrationContent& content) { content.cm = -content.cm; }},
                         {"negative", [](CalibrationContent& content) { content.m2s = -content.m2s; }}}});
    return;
  }
  findings.push_back({Verdict::kWrong,
                      "cm.signs",
                      kSubject,
                      fmt::format("{} {} the other sign in one of the two", ModeWords(negative),
                                  negative.size() == 1 ? "has" : "have"),
                      "multiply these rows of the control matrix, or these columns of the other, by -1",
                      {{"modes_negative",
                        [negative](CalibrationContent& content) {
                          for (const Eigen::Index mode : negative) content.cm.row(mode) *= -1.0;
                        }},
                       {"modes_negative", [negative, source = modes.source](CalibrationContent& content) {
                          for (const Eigen::Index mode : negative) {
                            content.m2s.col(source[static_cast<std::size_t>(mode)]) *= -1.0;
                          }
                        }}}});
}

std::string OrderWords(const Modes& source) {
  const auto size = static_cast<Eigen::Index>(source.size());
  bool is_reversed = true;
  bool is_shifted = true;
  const Eigen::Index shift = (source.front() + size) % size;
  for (Eigen::Index row = 0; row < size; ++row) {
    const Eigen::Index mode = source[static_cast<std::size_t>(row)];
    if (mode < 0) continue;
    is_reversed = is_reversed && mode == size - 1 - row;
    is_shifted = is_shifted && mode == (row + shift) % size;
  }
  if (is_reversed) return "the modes of one of the two are in reverse order";
  if (is_shifted) return fmt::format("the modes of one of the two are shifted by {}", std::min(shift, size - shift));
  const auto first = std::ranges::find_if(
      source, [&](const Eigen::Index& mode) { return mode >= 0 && mode != &mode - source.data(); });
  return fmt::format("the modes are not in the same order: row {} of the control matrix gives back mode {}",
                     first - source.begin(), *first);
}

void AddOrder(const Assignment& modes, Findings& findings) {
  if (modes.IsInOrder()) return;
  const auto permute_cm = [source = modes.source](CalibrationContent& content) {
    const Matrix before = content.cm;
    content.cm.setZero();
    for (std::size_t row = 0; row < source.size(); ++row) {
      if (source[row] >= 0) content.cm.row(source[row]) = before.row(static_cast<Eigen::Index>(row));
    }
  };
  const auto permute_m2s = [source = modes.source](CalibrationContent& content) {
    const Matrix before = content.m2s;
    for (std::size_t row = 0; row < source.size(); ++row) {
      if (source[row] >= 0) content.m2s.col(static_cast<Eigen::Index>(row)) = before.col(source[row]);
    }
  };
  findings.push_back({Verdict::kWrong,
                      "cm.order",
                      kSubject,
                      OrderWords(modes.source),
                      "bring the rows of the control matrix, or the columns of the other, into the order of the modes",
                      {{"modes_permuted", permute_cm}, {"modes_permuted", permute_m2s}}});
}

/// Sizes: one factor for all is a mistake of units, gains of each mode a choice.
void AddSizes(const Response& response, const Assignment& modes, double worst, double condition, Findings& findings) {
  constexpr double kSame = 0.02;
  constexpr double kNear = 0.1;
  constexpr double kExact = 0.05;
  constexpr double kMuchLess = 0.5;
  constexpr double kSpread = 0.3;  // of gains that noise makes of one
  constexpr double kLeastGain = 0.1;
  const double least = modes.LeastGain();
  const double most = modes.MostGain();
  const bool is_exact_factor = most - least < kSame * most && std::abs(most - 1.0) > kSame && modes.worst_rest < kSame;
  const bool is_noisy_factor = most - least < kSpread * most && (least > 1.0 + kSpread || most < 0.01);
  if (is_exact_factor || is_noisy_factor) {
    const double factor = is_exact_factor ? 0.5 * (least + most) : modes.TypicalGain();
    const bool may_be_gain = factor > kLeastGain && factor < 1.0;
    findings.push_back({may_be_gain ? Verdict::kDoubtful : Verdict::kWrong,
                        "cm.scale",
                        kSubject,
                        fmt::format("{:.4g} times the identity{}", factor, LeftOut(response)),
                        fmt::format("divide the control matrix, or the other, by {:.4g}: their units do not match{}",
                                    factor, may_be_gain ? ", or a loop's gain is in it" : ""),
                        {{"scaled", [factor](CalibrationContent& content) { content.cm /= factor; }},
                         {"scaled", [factor](CalibrationContent& content) { content.m2s /= factor; }}}});
    return;
  }
  if (least > 1.0 - kNear && most < 1.0 + kNear) {
    const bool is_exact = worst <= kExact;
    findings.push_back(
        {is_exact ? Verdict::kGood : Verdict::kDoubtful,
         "cm.inverse",
         kSubject,
         fmt::format("identity to {:.2g}; condition number of M2S {:.3g}{}", worst, condition, LeftOut(response)),
         is_exact ? "" : "the two were measured apart, or one is noisy; to be sure, " + std::string(kRemake),
         {}});
    return;
  }
  const std::string text =
      fmt::format("gains from {:.2g} to {:.2g}, one for each mode{}", least, most, LeftOut(response));
  if (most < 1.0 + kNear) {
    findings.push_back({least >= kMuchLess ? Verdict::kGood : Verdict::kDoubtful,
                        "cm.inverse",
                        kSubject,
                        text,
                        least >= kMuchLess ? "" : "if these are not the gains that you chose: " + std::string(kRemake),
                        {}});
    return;
  }
  findings.push_back({most < 2.0 ? Verdict::kDoubtful : Verdict::kWrong,
                      "cm.inverse",
                      kSubject,
                      text,
                      "a mode that is given back too large overshoots: " + std::string(kRemake),
                      {}});
}

/// An inversion that gives less to what is hard to see, or leaves it out: all eigenvalues are between 0 and 1.
/// @return  their mean; none if they are not
std::optional<double> FilteredShare(const Matrix& response) {
  constexpr double kSlack = 0.05;
  const Eigen::VectorXcd values = Eigen::EigenSolver<Eigen::MatrixXd>(response, false).eigenvalues();
  for (const auto& value : values) {
    if (std::abs(value.imag()) > kSlack || value.real() < -kSlack || value.real() > 1.0 + kSlack) return std::nullopt;
  }
  return values.real().mean();
}

/// A row of the control matrix that is there twice. Rows of a truncated inversion may have the same direction, and no
/// two of them the same size.
std::optional<Finding> RowTwice(const Matrix& m2s, const Matrix& cm) {
  constexpr double kSame = 1e-6;
  for (const auto& [first, second] : SameDirections(cm.transpose())) {
    if ((cm.row(second) - cm.row(first)).stableNorm() > kSame * cm.row(first).stableNorm()) continue;
    if (!SameDirections(m2s).empty()) return std::nullopt;  // it is that matrix's fault
    return Finding{Verdict::kWrong,
                   "cm.inverse",
                   kSubject,
                   fmt::format("row {} of the control matrix is row {} once more", second, first),
                   kRemake,
                   {Remade(kRowTwice)},
                   {static_cast<std::size_t>(second), static_cast<std::size_t>(first)}};
  }
  return std::nullopt;
}

Finding Unequal(const Response& response) {
  constexpr double kNearlyMost = 0.3;
  constexpr double kMostOfThem = 0.75;
  const Matrix controlled = response.Controlled();
  const double off = (controlled - Matrix::Identity(controlled.rows(), controlled.cols())).norm() /
                     std::sqrt(static_cast<double>(controlled.rows()));
  if (const auto share = FilteredShare(controlled)) {
    const bool is_mild = *share > kMostOfThem;
    return {is_mild ? Verdict::kGood : Verdict::kDoubtful,
            "cm.inverse",
            kSubject,
            fmt::format("a truncated, filtered or regularised inversion, which gives back {:.0f} % of the modes{}",
                        100.0 * *share, LeftOut(response)),
            is_mild ? "" : "if you did not choose that: " + std::string(kRemake),
            {}};
  }
  if (off < kNearlyMost) {
    return {off < 0.05 ? Verdict::kGood : Verdict::kDoubtful,
            "cm.inverse",
            kSubject,
            fmt::format("identity to {:.2g} (RMS of a mode){}", off, LeftOut(response)),
            off < 0.05 ? "" : "the two were measured apart, or one is noisy; to be sure, " + std::string(kRemake),
            {}};
  }
  return {
      Verdict::kWrong,
      "cm.inverse",
      kSubject,
      fmt::format("not the identity in any order or scale ({:.2g} off, RMS of a mode): one of the two is of another "
                  "mirror or of other modes, or spoiled by noise",
                  off),
      kRemake,
      {Remade(kOtherModes)}};
}

}  // namespace

std::string ModeWords(const Modes& modes) {
  std::vector<std::string> runs;
  for (std::size_t k = 0; k < modes.size();) {
    std::size_t last = k;
    while (last + 1 < modes.size() && modes[last + 1] == modes[last] + 1) ++last;
    if (last < k + 2) last = k;  // two are no run
    runs.push_back(last > k ? fmt::format("{} to {}", modes[k], modes[last]) : fmt::format("{}", modes[k]));
    k = last + 1;
  }
  const std::string end = runs.size() > 1 ? " and " + runs.back() : "";
  if (runs.size() > 1) runs.pop_back();
  return fmt::format("{} {}{}", modes.size() == 1 ? "mode" : "modes", fmt::join(runs, ", "), end);
}

bool RemakesCm(const Correction& correction) {
  return correction.mistake == kOtherModes || correction.mistake == kRowTwice;
}

namespace {

constexpr double kMostRows = 0.85;

}  // namespace

GivenBack::GivenBack(const Eigen::MatrixXd& response) {
  double clear = 0.0;
  for (Eigen::Index row = 0; row < response.rows(); ++row) {
    if (response.row(row).isZero(0.0)) continue;
    Eigen::Index mode = 0;
    response.row(row).cwiseAbs().maxCoeff(&mode);
    const double gain = response(row, mode);
    clear += gain * gain;
    cosines_ += response(row, row) / response.row(row).norm();
    ++rows_;
    rows_in_place_ += static_cast<int>(mode == row);
    positive_rows_ += static_cast<int>(gain > 0.0);
  }
  if (clear > 0.0) unclear_ = 1.0 - clear / response.squaredNorm();
}

bool GivenBack::AreRight() const {
  constexpr double kMostly = 0.4;
  return cosines_ > kMostly * rows_;
}
bool GivenBack::IsInOrder() const { return rows_in_place_ >= kMostRows * rows_; }
bool GivenBack::IsNegative() const { return 2 * positive_rows_ < rows_; }
bool GivenBack::HasMixedSigns() const { return std::max(positive_rows_, rows_ - positive_rows_) < kMostRows * rows_; }

std::optional<Finding> CheckSame(const CalibrationContent& content) {
  const Eigen::Map<const Eigen::VectorXd> m2s(content.m2s.data(), content.m2s.size());
  const Eigen::Map<const Eigen::VectorXd> cm(content.cm.data(), content.cm.size());
  const double rounding = 1e-6 * m2s.cwiseAbs().maxCoeff();
  const bool is_transposed = (content.cm - content.m2s.transpose()).cwiseAbs().maxCoeff() <= rounding;
  const bool is_in_memory = (cm - m2s).cwiseAbs().maxCoeff() <= rounding;
  if (!is_transposed && !is_in_memory) return std::nullopt;
  const double off =
      (content.cm * content.m2s - Matrix::Identity(content.cm.rows(), content.cm.rows())).cwiseAbs().maxCoeff();
  if (off < 0.05) return std::nullopt;  // modes at right angles and of length 1: their own inverse
  return Finding{
      Verdict::kWrong,
      "cm.inverse",
      kSubject,
      "both files hold the same matrix, which is no inverse of itself",
      "put the pseudo-inverse of M2S.fits into CM.fits, or the other way round if that one is the control matrix",
      {Remade("is_m2s"), {"is_cm", [](CalibrationContent& changed) { changed.m2s = PseudoInverse(changed.cm); }}}};
}

std::vector<std::pair<Eigen::Index, Eigen::Index>> SameDirections(const Matrix& columns) {
  constexpr double kSame = 0.999;  // cosine of the angle between them; of a basis' noisy modes below 0.9
  const Matrix unit = ColumnsOfLengthOne(columns);
  const Matrix cosines = unit.transpose() * unit;
  std::vector<std::pair<Eigen::Index, Eigen::Index>> same;
  for (Eigen::Index second = 1; second < cosines.rows(); ++second) {
    for (Eigen::Index first = 0; first < second; ++first) {
      if (std::abs(cosines(first, second)) < kSame) continue;
      same.emplace_back(first, second);
      break;
    }
  }
  return same;
}

Findings CheckInverse(const Matrix& m2s, const Matrix& cm) {
  constexpr double kStandsOut = 0.25;  // the rest, of the element that stands out
  const Response response(m2s, cm);
  if (response.controlled.empty()) return {};  // all zeros, which is told by its values
  if (auto twice = RowTwice(m2s, cm)) return {*std::move(twice)};
  const Assignment modes(response);
  if (!modes.is_one_to_one || !(modes.worst_rest < kStandsOut)) return {Unequal(response)};
  const Matrix controlled = response.Controlled();
  Findings findings;
  AddSigns(response, modes, findings);
  AddOrder(modes, findings);
  const double worst = (controlled - Matrix::Identity(controlled.rows(), controlled.cols())).cwiseAbs().maxCoeff();
  if (findings.empty() || modes.LeastGain() < 0.98 || modes.MostGain() > 1.02) {
    AddSizes(response, modes, worst, ConditionNumber(m2s), findings);
  }
  return findings;
}

}  // namespace quen::workbench
