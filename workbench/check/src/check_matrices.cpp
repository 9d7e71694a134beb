#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <utility>

#include "common/statistics/quantile.hpp"
#include "workbench/check/src/check_inverse.hpp"
#include "workbench/check/src/check_modes.hpp"
#include "workbench/check/src/check_subapertures.hpp"
#include "workbench/check/src/checks.hpp"
#include "workbench/check/src/in_place.hpp"
#include "workbench/check/src/list_beginnings.hpp"
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

/// A list that begins with another sub-aperture.
Finding OtherBeginning(const NamedMatrix& file, int further_on, std::size_t size) {
  const int places = std::abs(further_on);
  return {Verdict::kWrong,
          file.key,
          std::string(file.name) + " layout",
          fmt::format("its list begins with another sub-aperture: its slopes stand {} {} too {}, those at one end of "
                      "either block at the other",
                      places, places == 1 ? "place" : "places", further_on > 0 ? "early" : "late"),
          fmt::format("move the {} {} of its y slopes to the {} of these, and those of its x slopes likewise",
                      further_on > 0 ? "last" : "first", places == 1 ? "one" : fmt::format("{}", places),
                      further_on > 0 ? "front" : "end"),
          {PutRightFrom(file, kFurtherOn, OrdersFurtherOn(further_on, size))}};
}

/// Whether the slopes of M2S are where its usage flags say.
bool AreInPlace(const CalibrationContent& content, const Lattice& lattice) {
  const std::vector<std::size_t> used = UsedIndices(content.used);
  const SlopeSpace gradients = SlopeSpace::OfGradients(content.rois, used, kSmoothDegree);
  return UnevennessOfRest(M2sFields(content.m2s, false), gradients, lattice, used) > kClearlyInPlace;
}

/// Whether another layout says why slopes are out of place: they are in place so, or next to all that was no gradient
/// is one then, and what is left is to be seen once the layout is right.
bool IsOfLayout(const CalibrationContent& content, const SlopeSpace& gradients, const MatrixLayout& m2s,
                const Lattice& lattice, const std::vector<ListOrder>& orders) {
  constexpr double kRest = 0.25;
  if (m2s.layouts.empty() || m2s.IsRight()) return false;
  if (1.0 - m2s.put_right < kRest * (1.0 - m2s.as_it_stands)) return true;
  const std::vector<std::size_t> used = UsedIndices(content.used);
  const Matrix put_right = M2sPutRight(content.m2s, m2s.layouts.front(), orders);
  const OddSubapertures odd = FindOddSubapertures(put_right, lattice, used, gradients);
  const Fields sound = WithoutOddSubapertures(put_right, odd, m2s.put_right, gradients);
  return UnevennessOfRest(sound, gradients, lattice, used) > kMisplaced;
}

/// Usage flags that belong to another pupil.
std::optional<Finding> CheckPupil(const CalibrationContent& content, const SlopeSpace& gradients,
                                  const MatrixLayouts& layouts, const Lattice& lattice,
                                  const std::vector<ListOrder>& orders) {
  const MatrixLayout& m2s = layouts.m2s;
  const Fields slopes = M2sFields(content.m2s, false);
  const std::vector<std::size_t> used = UsedIndices(content.used);
  if (UnevennessOfRest(slopes, gradients, lattice, used) > kMisplaced) return std::nullopt;
  const bool is_of_layout = IsOfLayout(content, gradients, m2s, lattice, orders);
  if (is_of_layout && m2s.put_right > kSurelyInPlace) return std::nullopt;  // the search for flags takes its time
  Finding finding = {Verdict::kWrong,
                     "flags.pupil",
                     "usage flags",
                     "the slopes go with flags of another pupil: one with another obscuration",
                     "write the flags of the pupil that the matrices were made for",
                     {}};
  const auto flags = FlagsOfAnotherPupil(content);
  if (flags && AreInPlace({content.m2s, content.cm, content.rois, *flags}, lattice)) {
    finding.corrections = {{"flags", [flags = *flags](CalibrationContent& changed) { changed.used = flags; }}};
    return finding;
  }
  if (is_of_layout) return std::nullopt;
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

/// A calibration after the first correction of a finding.
CalibrationContent After(const Finding& finding, CalibrationContent content) {
  finding.corrections.front().apply(content);
  return content;
}

/// Whether flags with one sub-aperture in the place of another say more than what is found of the pupil.
bool IsBetter(const Finding& slide, const std::optional<Finding>& pupil, const CalibrationContent& content,
              const Lattice& lattice) {
  if (!pupil) return true;
  if (slide.corrections.empty()) return false;
  const CalibrationContent right = After(slide, content);
  if (pupil->corrections.empty()) return AreInPlace(right, lattice);
  const auto share = [](const CalibrationContent& of) {
    const auto gradients = SlopeSpace::OfGradients(of.rois, UsedIndices(of.used), kSmoothDegree);
    return gradients.Share(Sample(of.m2s));
  };
  return share(right) > share(After(*pupil, content));
}

/// Flags with one sub-aperture in the place of another, which noise can hide from all that is looked at before.
std::optional<Finding> CheckSlide(const CalibrationContent& content, const SlopeSpace& gradients,
                                  const MatrixLayouts& layouts, const Lattice& lattice) {
  constexpr double kSmooth = 0.7;
  const double rest = 1.0 - layouts.m2s.as_it_stands;
  if (rest > 1.0 - kSmooth || !layouts.cm.is_of_the_other) return std::nullopt;
  const std::vector<std::size_t> used = UsedIndices(content.used);
  const std::vector<Slide> slides = FindSlides(M2sFields(content.m2s, false), gradients, lattice, used);
  if (slides.empty()) return std::nullopt;
  const Slide& slide = slides.front();
  const bool is_layout_better = !layouts.m2s.IsRight() && 1.0 - layouts.m2s.put_right < (1.0 - slide.gain) * rest;
  if (is_layout_better) return std::nullopt;
  std::vector<std::string> advice;
  std::vector<Correction> corrections;
  for (const MovedFlag& flag : MovedFlags(slides, content, lattice)) {
    advice.push_back(fmt::format("flag sub-aperture {} in the place of {}", flag.lit, flag.dark));
    corrections.push_back({"flags", [flag](CalibrationContent& changed) { PutBack(flag, changed.used); }});
  }
  if (advice.empty()) advice.emplace_back("write the flags of the pupil that the matrices were made for");
  return Finding{
      Verdict::kWrong,
      "flags.pupil",
      "usage flags",
      fmt::format("the slopes from sub-aperture {} to {} stand one place too {} in the list: the flags have one of "
                  "these two in the place of another one at the rim of the pupil ({:.0f} % of what is no wavefront's "
                  "disappears once they are in place)",
                  used[slide.first], used[slide.last], slide.is_late ? "late" : "early", 100.0 * slide.gain),
      fmt::format("{}", fmt::join(advice, "; or ")),
      std::move(corrections),
      {used[slide.first], used[slide.last]}};
}

}  // namespace

Findings CheckMatrices(CalibrationContent content, const std::optional<Lattice>& lattice) {
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
  const ListBeginnings begin = FindListBeginnings(content.m2s, content.cm, gradients, *lattice, used, orders);
  for (const auto& [file, further_on] : {std::pair(kM2s, begin.m2s), std::pair(kCm, begin.cm)}) {
    if (further_on == 0) continue;
    findings.push_back(OtherBeginning(file, further_on, used.size()));
    findings.back().corrections.front().apply(content);  // what else is wrong is to be put right after that
  }
  MatrixLayouts layouts = FindLayouts(content, content.m2s, gradients, *lattice, used, orders);
  OddSubapertures odd = FindOddSubapertures(content.m2s, *lattice, used, gradients);
  const Matrix sound_m2s = WithoutOddSubapertures(content.m2s, odd, layouts.m2s.put_right, gradients);
  if (sound_m2s != content.m2s) layouts = FindLayouts(content, sound_m2s, gradients, *lattice, used, orders);
  const CalibrationContent sound = {sound_m2s, content.cm, content.rois, content.used};
  auto pupil = CheckPupil(sound, gradients, layouts, *lattice, orders);
  if (auto slide = CheckSlide(sound, gradients, layouts, *lattice); slide && IsBetter(*slide, pupil, sound, *lattice)) {
    pupil = std::move(slide);
  }
  if (pupil) {
    findings.push_back(*pupil);
  } else {
    CheckLayouts(layouts, orders, findings);
    const auto is_said = [&](const Finding& finding) {  // in place, but for where its list begins
      const auto is_wrong = [&](const Finding& other) { return other.key == finding.key && IsWrong(other); };
      return finding.verdict == Verdict::kGood && std::ranges::any_of(findings, is_wrong);
    };
    std::erase_if(findings, is_said);
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
