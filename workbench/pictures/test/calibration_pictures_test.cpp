#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>

#include "testing/environment.hpp"
#include "workbench/check/check.hpp"
#include "workbench/pictures/check_picture.hpp"
#include "workbench/pictures/mode_picture.hpp"
#include "workbench/pictures/src/vector_field.hpp"
#include "workbench/pictures/test/looks_like.hpp"
#include "workbench/sensor/calibration.hpp"
#include "workbench/sensor/calibration_lookup.hpp"
#include "workbench/sensor/dimensions.hpp"

// Pictures of a calibration: arrow maps of its modes, and what is wrong with it.

namespace quen::workbench {
namespace {

using quen::testing::ExpectDrawn;
using quen::testing::ExpectLooksLike;
using quen::testing::ExtremePairs;
using Content = CalibrationContent;

Content SyntheticContent() {
  const testing::TempDir folder;
  WriteCalibration(folder.Path(), false);
  return ContentOf(LoadSimulator(folder.Path()));
}

class CalibrationPictures : public ::testing::Test {
 protected:
  [[nodiscard]] Overlay Sensor() const { return {good_.rois, good_.used, std::nullopt}; }

  Content good_ = SyntheticContent();
};

TEST_F(CalibrationPictures, ModesAreArrowsOverThePupil) {
  const Matrix m2s = good_.m2s;
  ExpectLooksLike("modes", [&] { return DrawModes(m2s, Sensor(), "M2S", "px/rad"); });
}

/// A mode without slopes, a sub-aperture without any, an element that is not finite, and one that is far too large.
TEST_F(CalibrationPictures, ModesShowWhatIsMissing) {
  Matrix m2s = good_.m2s;
  m2s.col(1).setZero();
  m2s.col(44).setZero();
  m2s.row(300).setZero();
  m2s.row(907).setZero();
  m2s(200, 3) = std::numeric_limits<double>::quiet_NaN();
  m2s(50, 4) = 3.0;
  ExpectLooksLike("modes_damaged", [&] { return DrawModes(m2s, Sensor(), "M2S", "px/rad"); });
}

TEST_F(CalibrationPictures, ModesOfAnyNumbers) {
  for (const auto& [one, other] : ExtremePairs()) {
    Matrix m2s = Matrix::Constant(1214, 2, one);
    m2s(700, 1) = other;
    ExpectDrawn([&] { return DrawModes(m2s, Sensor(), "", ""); });
  }
}

TEST_F(CalibrationPictures, ModesOfAnyFlags) {
  const Matrix m2s = good_.m2s;
  Overlay overlay = Sensor();
  for (const std::size_t flags : {0U, 1U, 1089U, 2000U}) {
    overlay.used.assign(flags, 1);
    ExpectDrawn([&] { return DrawModes(m2s, overlay, "", ""); });
  }
  std::ranges::fill(overlay.rois, Roi(0, 0, 0, 0, 840, 816, 0.0, 0.0));
  ExpectDrawn([&] { return DrawModes(m2s, overlay, "", ""); });
}

TEST_F(CalibrationPictures, SizesOfVectorsAreInWords) {
  const Overlay overlay = Sensor();
  const auto words = [&](const Eigen::VectorXd& slopes) { return SizeWords(SlopeField(overlay, slopes), "px"); };
  Eigen::VectorXd slopes(1214);
  slopes << Eigen::VectorXd::Constant(607, 4.0), Eigen::VectorXd::Constant(607, 3.0);
  EXPECT_EQ(words(slopes), "RMS 5, longest 5 px");
  EXPECT_EQ(words(1e300 * slopes), "RMS 5e+300, longest 5e+300 px");
  slopes(2) = std::numeric_limits<double>::infinity();
  EXPECT_EQ(words(slopes), "1 not finite, longest 5 px");
  slopes.setZero();
  EXPECT_EQ(words(slopes), "all zeros");
  slopes(1213) = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(words(slopes), "all zeros (1 not finite)");
}

TEST_F(CalibrationPictures, TheFirstSlopesAreThoseOfYAndTheSecondThoseOfX) {
  const Overlay overlay = Sensor();
  const VectorField field = SlopeField(overlay, Eigen::VectorXd::LinSpaced(1214, 0.0, 1213.0));
  const std::vector<std::size_t> used = UsedIndices(overlay.used);
  ASSERT_EQ(field.vectors.size(), 607U);
  EXPECT_EQ(field.vectors[5], Eigen::Vector2d(612.0, 5.0));
  EXPECT_EQ(field.rois[5].x_low, overlay.rois[used[5]].x_low);
  EXPECT_EQ(Middle(overlay.rois[0]), Eigen::Vector2d(35.5, 23.5));
}

// --- What is wrong with a calibration

/// A mistake made, what is found, and the picture of that.
void ExpectFindingsLookLike(const std::string& name, Content content, const std::function<void(Content&)>& damage,
                            const std::vector<std::string>& keys) {
  damage(content);
  const Findings findings = Examine(content);
  std::vector<std::string> found;
  for (const Finding& finding : findings) {
    if (finding.verdict != Verdict::kGood) found.push_back(finding.key);
  }
  EXPECT_EQ(found, keys) << name;
  ExpectLooksLike(name, [&] { return DrawFindings(content, findings, "check sensor"); });
}

TEST_F(CalibrationPictures, FindingsStandBesideTheirCorrections) {
  ExpectFindingsLookLike("check_good", good_, [](Content&) {}, {});
  ExpectFindingsLookLike("check_flipped", good_, [](Content& content) { content.m2s.bottomRows(607) *= -1.0; },
                         {"m2s.layout"});
  ExpectFindingsLookLike("check_exchanged", good_,
                         [](Content& content) {
                           const Content before = content;
                           content.m2s << before.m2s.bottomRows(607), before.m2s.topRows(607);
                           content.cm << before.cm.rightCols(607), before.cm.leftCols(607);
                         },
                         {"m2s.layout", "cm.layout"});
  ExpectFindingsLookLike("check_references", good_,
                         [](Content& content) {
                           for (auto& roi : content.rois) roi.x_ref += 0.5;
                           content.rois[40].x_up = static_cast<std::uint16_t>(content.rois[40].x_up + 9);
                         },
                         {"regions.coverage", "references.offset_x"});
  ExpectFindingsLookLike("check_flags", good_,
                         [](Content& content) {
                           content.used = UsedFlags({.obscuration = 0.0});
                           content.used[1088] = 1;
                         },
                         {"flags.count", "flags.pupil"});
  ExpectFindingsLookLike("check_modes", good_,
                         [](Content& content) {
                           content.m2s.col(37).setZero();
                           content.m2s.row(233).setZero();
                           content.m2s.row(840).setZero();
                         },
                         {"m2s.modes", "m2s.subapertures"});
  ExpectFindingsLookLike("check_signs", good_, [](Content& content) { content.cm.row(4) *= -1.0; }, {"cm.signs"});
  ExpectFindingsLookLike("check_values", good_,
                         [](Content& content) {
                           content.m2s(17, 3) = 1e30;
                           content.cm(9, 5) = std::numeric_limits<double>::quiet_NaN();
                           content.rois[500].y_ref += 60.0;
                         },
                         {"references.inside", "m2s.values", "cm.values"});
}

TEST_F(CalibrationPictures, FindingsOfAnyNumbersAreDrawn) {
  for (const auto& [one, other] : ExtremePairs()) {
    Content content = good_;
    content.m2s(3, 2) = one;
    content.cm(2, 3) = other;
    content.rois[40].x_ref = other;
    content.used.resize(content.used.size() / 2);
    ExpectDrawn([&] { return DrawFindings(content, Examine(content), ""); });
  }
}

}  // namespace
}  // namespace quen::workbench
