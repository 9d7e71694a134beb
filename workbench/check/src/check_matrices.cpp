#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <utility>

#include "common/statistics/quantile.hpp"
#include "workbench/check/src/check_inverse.hpp"
#include "workbench/check/src/check_modes.hpp"
#include "workbench/check/src/check_subapertures.hpp"
#include "workbench/check/src/checks.hpp"
#include "workbench/check/src/matrix_layouts.hpp"
#include "workbench/check/src/slide.hpp"
#include "workbench/sensor/dimensions.hpp"
#include "workbench/sensor/displacements.hpp"

namespace quen::workbench {
namespace {

// --- Values

/// The same numbers with their bytes in the other order.
Matrix Swapped(const Matrix& matrix) {
  return matrix.unaryExpr([](double value) {
    auto bytes = std::bit_cast<std::array<std::byte, sizeof(double)>>(value);
    std::ranges::reverse(bytes);
    return std::bit_cast<double>(bytes);
  });
}

/// Whether numbers are such as programs compute, from the smallest to the largest.
bool AreOrdinary(const Matrix& matrix) {
  constexpr double kLargest = 1e12;
  return matrix.allFinite() && matrix.cwiseAbs().maxCoeff() < kLargest &&
         (matrix.array() == 0.0 || matrix.array().abs() > 1.0 / (kLargest * kLargest)).all();
}

Finding CheckValues(const std::string& name, const Matrix& matrix, const char* row_name, const char* column_name) {
  constexpr std::ptrdiff_t kRanked = 30;
  constexpr double kOut = 1e4;
  const std::string key = name == "M2S" ? "m2s.values" : "cm.values";
  const std::string subject = name + " values";
  const std::string remake = "write " + name + ".fits again";
  if (!AreOrdinary(matrix) && AreOrdinary(Swapped(matrix))) {
    Matrix CalibrationContent::*const which = name == "M2S" ? &CalibrationContent::m2s : &CalibrationContent::cm;
    return {Verdict::kWrong,
            key,
            subject,
            "the bytes of its numbers are in the wrong order: FITS files hold the highest byte first",
            "swap the bytes of its numbers",
            {{"bytes_swapped", [which](CalibrationContent& content) { content.*which = Swapped(content.*which); }}}};
  }
  const auto mode_of = [&](Eigen::Index row, Eigen::Index column) {
    return static_cast<std::size_t>(name == "M2S" ? column : row);
  };
  for (Eigen::Index row = 0; row < matrix.rows(); ++row) {
    for (Eigen::Index column = 0; column < matrix.cols(); ++column) {
      if (std::isfinite(matrix(row, column))) continue;
      return {
          Verdict::kWrong,
          key,
          subject,
          fmt::format("{} {}, {} {} is {} (counted from 0)", row_name, row, column_name, column, matrix(row, column)),
          remake,
          {},
          {mode_of(row, column)}};
    }
  }
  Eigen::Index row = 0;
  Eigen::Index column = 0;
  const double largest = matrix.cwiseAbs().maxCoeff(&row, &column);
  std::vector<double> sizes(static_cast<std::size_t>(matrix.size()));
  std::ranges::transform(matrix.reshaped(), sizes.begin(), [](double value) { return std::abs(value); });
  std::ranges::nth_element(sizes, sizes.end() - kRanked);
  const double usual = *(sizes.end() - kRanked);
  if (usual > 0.0 && largest > kOut * usual) {
    return {Verdict::kWrong,
            key,
            subject,
            fmt::format("{} {}, {} {} is {:g} (counted from 0), where almost all are below {:.3g}", row_name, row,
                        column_name, column, matrix(row, column), usual),
            remake,
            {},
            {mode_of(row, column)}};
  }
  if (largest == 0.0) return {Verdict::kWrong, key, subject, "all zeros", remake, {}};
  return {Verdict::kGood, key, subject, fmt::format("finite, largest magnitude {:.3g}", largest), "", {}};
}

// --- Layouts

/// Of a file.
struct NamedMatrix {
  const char* name;
  const char* key;
  Matrix CalibrationContent::*matrix;
  Matrix (*put_right)(const Matrix&, const Layout&, const std::vector<ListOrder>&);
};

constexpr NamedMatrix kM2s = {"M2S", "m2s.layout", &CalibrationContent::m2s, M2sPutRight};
constexpr NamedMatrix kCm = {"CM", "cm.layout", &CalibrationContent::cm, CmPutRight};

std::string Joined(const std::vector<LayoutMistake>& mistakes, std::string LayoutMistake::*part, const char* between) {
  std::vector<std::string> parts;
  for (const LayoutMistake& mistake : mistakes) {
    if (!(mistake.*part).empty()) parts.push_back(mistake.*part);
  }
  return fmt::format("{}", fmt::join(parts, between));
}

/// Where both matrices are in the same other order, or have x and y exchanged, it may be the regions that are or have.
std::optional<Correction> OtherRegions(const Layout& layout, const std::vector<ListOrder>& orders) {
  Layout order;
  order.order = layout.order;
  if (layout.order != 0 && layout == order) {
    return Correction{orders[layout.order].mistake,
                      [regions = orders[layout.order].regions](CalibrationContent& content) {
                        const auto before = content.rois;
                        for (std::size_t i = 0; i < regions.size(); ++i) content.rois[i] = before[regions[i]];
                      }};
  }
  Layout exchanged;
  exchanged.is_x_first = true;
  if (layout != exchanged) return std::nullopt;
  return Correction{"regions_exchanged", [](CalibrationContent& content) {
                      for (auto& roi : content.rois) {
                        std::swap(roi.x_low, roi.y_low);
                        std::swap(roi.x_up, roi.y_up);
                        std::swap(roi.x_ref, roi.y_ref);
                        std::swap(roi.width, roi.height);
                      }
                    }};
}

/// What may be wrong, one of which is.
struct Alternatives {
  std::vector<std::string> texts;
  std::vector<std::string> advice;
  std::vector<Correction> corrections;

  void Add(std::string text, std::string what_to_do, Correction correction) {
    texts.push_back(std::move(text));
    advice.push_back(std::move(what_to_do));
    corrections.push_back(std::move(correction));
  }
};

Correction PutRightFrom(const NamedMatrix& file, const Layout& layout, const std::vector<ListOrder>& orders) {
  return {Joined(MistakesOf(layout, orders), &LayoutMistake::word, "+"),
          [file, layout, orders](CalibrationContent& content) {
            content.*file.matrix = file.put_right(content.*file.matrix, layout, orders);
          }};
}

void AddLayout(const NamedMatrix& file, const Layout& layout, const std::vector<ListOrder>& orders,
               const std::string& before, Alternatives& alternatives) {
  const std::vector<LayoutMistake> mistakes = MistakesOf(layout, orders);
  alternatives.Add(before + Joined(mistakes, &LayoutMistake::text, ", and "),
                   before + Joined(mistakes, &LayoutMistake::advice, ", and "), PutRightFrom(file, layout, orders));
}

void AddOtherRegions(const Layout& layout, const std::vector<ListOrder>& orders, Alternatives& alternatives) {
  const auto other_regions = OtherRegions(layout, orders);
  if (!other_regions) return;
  alternatives.Add(layout.is_x_first ? "x and y are exchanged in shs_rois.fits"
                                     : "the regions in shs_rois.fits are in another order",
                   layout.is_x_first ? "exchange x and y in shs_rois.fits"
                                     : "list the regions in shs_rois.fits in the order of the slopes",
                   *other_regions);
}

/// Layouts of one mistake more, in short: a wavefront that is mirrored or turned on a pupil that looks the same so.
void AddFurther(const NamedMatrix& file, const std::vector<Layout>& further, const std::vector<ListOrder>& orders,
                Alternatives& alternatives) {
  std::vector<std::string> words;
  for (const Layout& layout : further) {
    words.push_back(Joined(MistakesOf(layout, orders), &LayoutMistake::word, " and "));
    std::ranges::replace(words.back(), '_', ' ');
    alternatives.corrections.push_back(PutRightFrom(file, layout, orders));
  }
  if (words.empty()) return;
  alternatives.texts.push_back(
      fmt::format("with one mistake more, which looks the same, {}", fmt::join(words, " or ")));
}

Finding CheckLayout(const NamedMatrix& file, const MatrixLayout& found, const Alternatives& alternatives) {
  constexpr double kSmooth = 0.6;
  const std::string subject = std::string(file.name) + " layout";
  const std::string share = fmt::format("{:.1f} % of the slopes are a smooth wavefront's", 100.0 * found.as_it_stands);
  if (found.layouts.empty()) {
    return {
        Verdict::kWrong,
        file.key,
        subject,
        fmt::format("slopes without order: {}, and no layout makes it more", share),
        "write the matrix again: these are no slopes of this sensor's sub-apertures, or in an order that has no name",
        {}};
  }
  if (found.IsRight()) {
    if (found.is_of_the_other) return {Verdict::kGood, file.key, subject, "its slopes are those of the modes", "", {}};
    if (found.as_it_stands > kSmooth) return {Verdict::kGood, file.key, subject, share, "", {}};
    return {Verdict::kDoubtful,
            file.key,
            subject,
            share + ", and no layout makes it more: noise, or details finer than a tenth of the pupil",
            "measure the matrix with less noise; if its modes are so fine, nothing is to be done",
            {}};
  }
  return {Verdict::kWrong,
          file.key,
          subject,
          fmt::format("{} ({:.1f} % of the slopes are a smooth wavefront's as it stands, {:.1f} % so)",
                      fmt::join(alternatives.texts, "; or "), 100.0 * found.as_it_stands, 100.0 * found.put_right),
          fmt::format("{}{}", fmt::join(alternatives.advice, "; or "),
                      alternatives.corrections.size() > 1 ? ": poke one actuator, and see which it is" : ""),
          alternatives.corrections};
}

/// A finding for each matrix.
void CheckLayouts(const MatrixLayouts& layouts, const std::vector<ListOrder>& orders, Findings& findings) {
  const bool is_in_both = layouts.m2s.layouts == layouts.cm.layouts;
  for (const auto& [file, found] : {std::pair(kM2s, &layouts.m2s), std::pair(kCm, &layouts.cm)}) {
    Alternatives alternatives;
    for (const Layout& layout : found->layouts) {
      AddLayout(file, layout, orders, "", alternatives);
      if (is_in_both) AddOtherRegions(layout, orders, alternatives);
    }
    if (is_in_both) AddFurther(file, found->further, orders, alternatives);
    if (found == &layouts.cm) {
      for (const Layout& layout : layouts.of_m2s_instead) AddLayout(kM2s, layout, orders, "in M2S, ", alternatives);
    }
    findings.push_back(CheckLayout(file, *found, alternatives));
  }
}

// Shares of the slopes that are a smooth wavefront's, as measured on calibrations of four kinds of modes, eight pupils
// and eleven lenslet arrays, of which no noise, 5 %, a tenth or a fifth of each mode's RMS is noise:
//
//                                                 no noise       5 %            a tenth        a fifth
//   M2S in place, median of the modes             0.979 to 1     0.977 to 1     0.970 to 0.99  0.945 to 0.97
//   with the flags of another pupil               up to 0.962    up to 0.959    up to 0.953    up to 0.929
//   with a list that begins three further on      up to 0.968    up to 0.965    up to 0.958    up to 0.933
//   CM in place, mean of the modes                0.918 to 1     0.906 to 0.99  0.872 to 0.97  0.769 to 0.91
//   with the flags of another pupil               up to 0.884    up to 0.877    up to 0.859    up to 0.795
//
// A list that begins one further on is not always to be told from one in its place: up to 0.979.
constexpr double kInPlaceWithNoise = 0.945;  // of M2S: all that are in place, with a fifth of noise even
constexpr double kSurelyInPlace = 0.967;     // of M2S: next to none that is not
constexpr double kCmInPlace = 0.965;         // none that is not

/// The share of a mode's slopes that is a smooth wavefront's where they stand, whatever their signs and units: the
/// median over the modes, some of which may be mistaken, or finer.
double ShareInPlace(const SlopeSpace& gradients, const Fields& slopes) {
  const std::vector<SlopeSpace::Candidate> candidates = gradients.InPlace(slopes);
  if (candidates.empty()) return 0.0;
  const Layout& layout = candidates.front().layout;
  Fields right = slopes;
  right.bottomRows(right.rows() / 2) *= (layout.is_x_flipped ? -1.0 : 1.0) / layout.x_unit;
  const Eigen::VectorXd shares = gradients.Shares(right);
  return quen::common::UpperMedian({shares.begin(), shares.end()});
}

/// Without the slopes of a few odd sub-apertures, if these are all that is wrong with the layout: if the others are a
/// smooth wavefront's where they stand, and that more clearly than in any other layout, in which some seem odd, too.
/// @param odd        of this matrix
/// @param put_right  share that is a smooth wavefront's in the best layout
Matrix WithoutOddSubapertures(const Matrix& m2s, const OddSubapertures& odd, double put_right,
                              const SlopeSpace& gradients) {
  constexpr std::size_t kFew = 4;  // flags of a pupil that is nearly the same make more of them odd
  const std::size_t count = 2 * odd.exchanged.size() + odd.scaled.size() + odd.unlike.size();
  if (count == 0 || count > kFew) return m2s;
  return ShareInPlace(gradients, odd.sound) > std::max(kInPlaceWithNoise, put_right) ? odd.sound : m2s;
}

/// How unevenly slopes change along the list of the used sub-apertures, over what of them is no smooth wavefront's. Of
/// slopes in their places, what is not smooth is noise, or details too fine, and as uneven along the list. Measured
/// with no noise, 5 %, a tenth and a fifth: 0.84 and more in place (at a fifth; with less, their share says it); with
/// the flags of another pupil below 0.23, 0.28, 0.40 and 0.65; in lists turned by 180° below 0.46, 0.47, 0.59 and 0.90,
/// also where the pupil looks the same so: these are told only once they are put right.
double UnevennessOfRest(const Fields& slopes, const SlopeSpace& gradients, const Lattice& lattice,
                        const std::vector<std::size_t>& used) {
  const double smooth_share = ShareInPlace(gradients, slopes);
  return smooth_share > kSurelyInPlace ? 1.0 : Unevenness(Sample(slopes), lattice, used) / (1.0 - smooth_share);
}

constexpr double kMisplaced = 0.5;
constexpr double kClearlyInPlace = 0.8;

/// Usage flags that belong to another pupil.
std::optional<Finding> CheckPupil(const CalibrationContent& content, const SlopeSpace& gradients,
                                  const MatrixLayouts& layouts, const Lattice& lattice,
                                  const std::vector<ListOrder>& orders) {
  const MatrixLayout& m2s = layouts.m2s;
  const Fields slopes = M2sFields(content.m2s, false);
  const std::vector<std::size_t> used = UsedIndices(content.used);
  if (UnevennessOfRest(slopes, gradients, lattice, used) > kMisplaced) return std::nullopt;
  Finding finding = {Verdict::kWrong,
                     "flags.pupil",
                     "usage flags",
                     "the slopes go with flags of another pupil: one with another obscuration",
                     "write the flags of the pupil that the matrices were made for",
                     {}};
  const auto flags = FlagsOfAnotherPupil(content);
  const auto have_place = [&](const std::vector<std::size_t>& others) {
    const SlopeSpace gradients_there = SlopeSpace::OfGradients(content.rois, others, kSmoothDegree);
    return UnevennessOfRest(slopes, gradients_there, lattice, others) > kClearlyInPlace;
  };
  if (flags && have_place(UsedIndices(*flags))) {
    finding.corrections = {{"flags", [flags = *flags](CalibrationContent& changed) { changed.used = flags; }}};
    return finding;
  }
  if (!m2s.layouts.empty() && !m2s.IsRight()) {
    const Matrix put_right = M2sPutRight(content.m2s, m2s.layouts.front(), orders);
    const OddSubapertures odd = FindOddSubapertures(put_right, lattice, used, gradients);
    const Fields sound = WithoutOddSubapertures(put_right, odd, m2s.put_right, gradients);
    if (UnevennessOfRest(sound, gradients, lattice, used) > kMisplaced) return std::nullopt;
  }
  const std::string unlike = fmt::format(
      "change evenly along the list of used sub-apertures, and not over the pupil ({:.1f} % of them are a smooth "
      "wavefront's)",
      100.0 * m2s.as_it_stands);
  if (layouts.cm.as_it_stands > kCmInPlace) {
    return Finding{Verdict::kWrong,
                   kM2s.key,
                   std::string(kM2s.name) + " layout",
                   "its slopes " + unlike + ", and those of CM are in place: its list begins with another sub-aperture",
                   "list the slopes of M2S as those of CM, from the first used sub-aperture on",
                   {}};
  }
  finding.text =
      "the slopes do not go with these flags, but with those of another pupil, or the list begins elsewhere: they " +
      unlike;
  finding.advice += ", and the slopes from the first used sub-aperture on";
  return finding;
}

/// A list that begins one further on, or flags with one sub-aperture in the place of another, which noise can hide from
/// all that is looked at before.
std::optional<Finding> CheckSlide(const CalibrationContent& content, const SlopeSpace& gradients,
                                  const MatrixLayouts& layouts, const Lattice& lattice) {
  constexpr double kSmooth = 0.7;
  const double rest = 1.0 - layouts.m2s.as_it_stands;
  if (rest > 1.0 - kSmooth) return std::nullopt;
  const std::vector<std::size_t> used = UsedIndices(content.used);
  const auto slide = FindSlide(M2sFields(content.m2s, false), gradients, lattice, used);
  if (!slide) return std::nullopt;
  const bool is_layout_better = !layouts.m2s.IsRight() && 1.0 - layouts.m2s.put_right < (1.0 - slide->gain) * rest;
  if (is_layout_better) return std::nullopt;
  const char* const how = slide->is_late ? "late" : "early";
  const std::string gain =
      fmt::format("{:.0f} % of what is no wavefront's disappears once they are in place", 100.0 * slide->gain);
  if (!layouts.cm.is_of_the_other) {
    return Finding{Verdict::kWrong,
                   kM2s.key,
                   std::string(kM2s.name) + " layout",
                   fmt::format("its slopes stand one place too {} in the list: its list begins with another "
                               "sub-aperture than that of CM ({})",
                               how, gain),
                   "list the slopes of M2S as those of CM, from the first used sub-aperture on",
                   {}};
  }
  if (slide->IsOfAll(used.size())) {
    return Finding{Verdict::kWrong,
                   "flags.pupil",
                   "usage flags",
                   fmt::format("the slopes stand one place too {} in the list of used sub-apertures: the list begins "
                               "elsewhere, or the flags do ({})",
                               how, gain),
                   "write the slopes from the first used sub-aperture on",
                   {}};
  }
  return Finding{Verdict::kWrong,
                 "flags.pupil",
                 "usage flags",
                 fmt::format("the slopes from sub-aperture {} to {} stand one place too {} in the list: the flags have "
                             "one of these two in the place of another one at the rim of the pupil ({})",
                             used[slide->first], used[slide->last], how, gain),
                 "write the flags of the pupil that the matrices were made for",
                 {},
                 {used[slide->first], used[slide->last]}};
}

}  // namespace

Findings CheckMatrices(const CalibrationContent& content, const std::optional<Lattice>& lattice) {
  Findings findings = {CheckValues("M2S", content.m2s, "slope", "mode"),
                       CheckValues("CM", content.cm, "mode", "slope")};
  if (std::ranges::any_of(findings, [](const Finding& finding) { return finding.verdict != Verdict::kGood; })) {
    return findings;
  }
  if (auto same = CheckSame(content)) {
    findings.push_back(*std::move(same));
    return findings;
  }
  const std::vector<std::size_t> used = UsedIndices(content.used);
  if (!lattice || used.size() != kNumRoisUsed) {
    findings.push_back({Verdict::kDoubtful,
                        "layout",
                        "layout",
                        lattice ? "cannot be told with these usage flags"
                                : "cannot be told: the references are on no grid of neighbours at equal distances",
                        "put the references and flags of shs_rois.fits right, and check again",
                        {}});
    for (Finding& finding : CheckInverse(content.m2s, content.cm)) findings.push_back(std::move(finding));
    return findings;
  }
  const std::vector<ListOrder> orders = ListOrders(*lattice, used);
  const SlopeSpace gradients = SlopeSpace::OfGradients(content.rois, used, kSmoothDegree);
  MatrixLayouts layouts = FindLayouts(content, content.m2s, gradients, *lattice, used, orders);
  OddSubapertures odd = FindOddSubapertures(content.m2s, *lattice, used, gradients);
  const Matrix sound_m2s = WithoutOddSubapertures(content.m2s, odd, layouts.m2s.put_right, gradients);
  if (sound_m2s != content.m2s) layouts = FindLayouts(content, sound_m2s, gradients, *lattice, used, orders);
  const CalibrationContent sound = {sound_m2s, content.cm, content.rois, content.used};
  auto pupil = CheckPupil(sound, gradients, layouts, *lattice, orders);
  if (!pupil) pupil = CheckSlide(sound, gradients, layouts, *lattice);
  if (pupil) {
    findings.push_back(*pupil);
  } else {
    CheckLayouts(layouts, orders, findings);
  }
  const auto first = [](const MatrixLayout& layout) {
    return layout.layouts.empty() ? Layout() : layout.layouts.front();
  };
  const Matrix m2s = pupil ? content.m2s : M2sPutRight(content.m2s, first(layouts.m2s), orders);
  const Matrix cm = pupil ? content.cm : CmPutRight(content.cm, first(layouts.cm), orders);
  if (pupil && pupil->key == kM2s.key) return findings;  // CM is not to be judged by it
  const bool is_m2s_sure = std::ranges::none_of(
      findings, [](const Finding& finding) { return finding.key == kM2s.key && finding.verdict != Verdict::kGood; });
  for (Finding& finding : CheckInverse(m2s, cm)) {
    if (!is_m2s_sure) {  // CM is not to be made of what may be wrong
      std::erase_if(finding.corrections, [](const Correction& correction) { return RemakesCm(correction); });
    }
    findings.push_back(std::move(finding));
  }
  if (pupil) return findings;  // without the right flags, nothing can be told of the modes
  const SlopeSpace surfaces = SlopeSpace::OfSurfaces(content.rois, used, kSmoothDegree - 1);
  if (first(layouts.m2s) != Layout()) odd = FindOddSubapertures(m2s, *lattice, used, gradients);
  if (layouts.m2s.layouts.empty()) odd = {.sound = m2s};  // where all is without order, single ones say nothing
  for (Finding& finding : CheckModes(odd.sound, gradients, surfaces, *lattice, used)) {
    findings.push_back(std::move(finding));
  }
  for (Finding& finding : CheckSubapertures(m2s, odd, used)) {
    if (!layouts.m2s.IsRight()) finding.corrections.clear();  // they are of the matrix put right
    findings.push_back(std::move(finding));
  }
  return findings;
}

}  // namespace quen::workbench
