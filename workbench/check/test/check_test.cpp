#include "workbench/check/check.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <filesystem>
#include <functional>
#include <iterator>
#include <limits>
#include <random>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "testing/calibration.hpp"
#include "testing/environment.hpp"
#include "testing/exceptions.hpp"
#include "testing/process.hpp"
#include "workbench/check/correct.hpp"
#include "workbench/check/src/check_inverse.hpp"
#include "workbench/sensor/calibration.hpp"
#include "workbench/sensor/calibration_lookup.hpp"
#include "workbench/sensor/poke.hpp"

namespace quen::workbench {
namespace {

using quen::testing::TempDir;

constexpr std::size_t kHalf = 607;
constexpr std::size_t kSlopes = 1214;
constexpr std::size_t kModes = 52;

/// A good calibration in memory, to be damaged.
testing::Calibration Good() {
  const Calibration made = MakeCalibration();
  testing::Calibration calibration;
  calibration.m2s.values.assign(made.m2s.data(), made.m2s.data() + made.m2s.size());
  calibration.cm.values.assign(made.cm.data(), made.cm.data() + made.cm.size());
  calibration.rois_used["is_used"].assign(made.used.begin(), made.used.end());
  return calibration;
}

Findings Check(const testing::Calibration& calibration) {
  const TempDir folder;
  calibration.Write(folder.Path());
  return CheckCalibration(folder.Path()).findings;
}

std::string Told(const Findings& findings) {
  std::string text;
  for (const Finding& finding : findings) text += finding.subject + ": " + finding.text + "\n";
  return text;
}

Findings Only(const Findings& findings, Verdict verdict) {
  Findings only;
  std::ranges::copy_if(findings, std::back_inserter(only),
                       [&](const Finding& finding) { return finding.verdict == verdict; });
  return only;
}

/// That exactly these subjects have this verdict, each with this in its text, in this order.
void ExpectFindings(const Findings& findings, Verdict verdict,
                    const std::vector<std::pair<std::string, std::string>>& expected) {
  const Findings found = Only(findings, verdict);
  ASSERT_EQ(found.size(), expected.size()) << Told(found);
  for (std::size_t k = 0; k < found.size(); ++k) {
    EXPECT_EQ(found[k].subject, expected[k].first) << Told(found);
    EXPECT_NE(found[k].text.find(expected[k].second), std::string::npos) << Told(found);
  }
}

void ExpectWrong(const testing::Calibration& calibration,
                 const std::vector<std::pair<std::string, std::string>>& expected) {
  ExpectFindings(Check(calibration), Verdict::kWrong, expected);
}

// --- Matrices as mistakes make them. A matrix is slopes × modes here, as M2S.fits has it.

using Values = std::vector<double>;

/// Values of slope s and mode m from those of another slope.
Values Rearranged(const Values& m2s, const std::function<std::size_t(std::size_t)>& from) {
  Values values(m2s.size());
  for (std::size_t s = 0; s < kSlopes; ++s) {
    for (std::size_t m = 0; m < kModes; ++m) values[m + kModes * s] = m2s[m + kModes * from(s)];
  }
  return values;
}

Values Transposed(const Values& values, std::size_t rows, std::size_t columns) {
  Values transposed(values.size());
  for (std::size_t row = 0; row < rows; ++row) {
    for (std::size_t column = 0; column < columns; ++column) {
      transposed[row + rows * column] = values[column + columns * row];
    }
  }
  return transposed;
}

/// The same for CM.fits, which is modes × slopes.
Values InCm(const Values& cm, const std::function<Values(const Values&)>& change) {
  return Transposed(change(Transposed(cm, kModes, kSlopes)), kSlopes, kModes);
}

Values Exchanged(const Values& m2s) {
  return Rearranged(m2s, [](std::size_t s) { return (s + kHalf) % kSlopes; });
}

Values Flipped(Values m2s, std::size_t first_slope) {
  for (std::size_t s = first_slope; s < first_slope + kHalf; ++s) {
    for (std::size_t m = 0; m < kModes; ++m) m2s[m + kModes * s] *= -1.0;
  }
  return m2s;
}
Values XFlipped(const Values& m2s) { return Flipped(m2s, kHalf); }
Values YFlipped(const Values& m2s) { return Flipped(m2s, 0); }

/// Used sub-apertures column by column.
Values ByColumns(const Values& m2s) {
  const auto flags = UsedFlags({});
  std::vector<std::size_t> by_rows;
  for (std::size_t i = 0; i < flags.size(); ++i) {
    if (flags[i] != 0) by_rows.push_back(i);
  }
  std::vector<std::size_t> order(kHalf);
  for (std::size_t k = 0; k < kHalf; ++k) order[k] = k;
  std::ranges::stable_sort(order, {}, [&](std::size_t k) { return by_rows[k] % 33; });
  return Rearranged(m2s, [&](std::size_t s) { return s < kHalf ? order[s] : kHalf + order[s - kHalf]; });
}

// --- Good ones

TEST(Check, FindsNothingWrongInWhatCalibrateWrites) {
  const std::vector<std::pair<Geometry, Basis>> made = {
      {{}, ZernikeBasis()},
      {{}, KarhunenLoeveBasis()},
      {{.pitch = 23.7, .size = 20, .offset_x = 5.3, .offset_y = -3.8}, ZernikeBasis()},
      {{.size = 23}, ZernikeBasis()},
      {{.obscuration = 0.0}, ZernikeBasis()},
      {{.obscuration = 0.35, .spider_angle = 30.0, .spider_width = 0.02}, KarhunenLoeveBasis()}};
  for (const auto& [geometry, basis] : made) {
    const TempDir folder;
    WriteCalibration(folder.Path(), false, MakeCalibration(geometry, basis));
    const Findings findings = CheckCalibration(folder.Path()).findings;
    EXPECT_EQ(findings.size(), 14U);
    ExpectFindings(findings, Verdict::kWrong, {});
    ExpectFindings(findings, Verdict::kDoubtful, {});
  }
}

TEST(Check, FindsNothingWrongInAMeasuredMatrix) {
  const TempDir folder;
  const Calibration made = MakeCalibration();
  WriteCalibration(folder.Path(), false, made);
  auto camera = LoadSimulator<Camera>(folder.Path());
  for (const auto& [engine, noise] : {std::pair("centre-of-gravity", 10.0), std::pair("weighted", 300.0)}) {
    const PokeOptions options = {.engine = engine, .amplitude = 1.0, .exposure = {.noise = noise}};
    WriteCalibration(folder.Path(), true, Measured(camera, made, options, [] {}));
    const Findings findings = CheckCalibration(folder.Path()).findings;
    ExpectFindings(findings, Verdict::kWrong, {});
    ExpectFindings(findings, Verdict::kDoubtful, {});
  }
}

TEST(Check, FindsNothingWrongInAListByColumnsThroughout) {
  testing::Calibration calibration = Good();
  calibration.m2s.values = ByColumns(calibration.m2s.values);
  calibration.cm.values = InCm(calibration.cm.values, ByColumns);
  for (const char* const name : {"x_low", "x_up", "x_ref", "y_low", "y_up", "y_ref"}) {
    calibration.rois[name] = Transposed(calibration.rois[name], 33, 33);
  }
  calibration.rois_used["is_used"] = Transposed(calibration.rois_used["is_used"], 33, 33);
  ExpectWrong(calibration, {});
}

TEST(Check, NamesTheFilesItFound) {
  const TempDir folder;
  WriteCalibration(folder.Path(), false);
  const Findings findings = CheckCalibration(folder.Path()).findings;
  EXPECT_EQ(findings[0].text, std::filesystem::canonical(folder / "data/M2S.fits"));
  EXPECT_EQ(findings[1].text, std::filesystem::canonical(folder / "data/CM.fits"));
  EXPECT_EQ(findings[2].text, std::filesystem::canonical(folder / "data/shs_rois.fits"));
}

// --- Mistakes in the layout

TEST(Check, NamesATransposedFile) {
  testing::Calibration calibration = Good();
  std::swap(calibration.m2s.dims[0], calibration.m2s.dims[1]);
  ExpectWrong(calibration, {{"M2S.fits", "is transposed: its axes are 1214 x 52, expected 52 x 1214"}});
  calibration = Good();
  std::swap(calibration.cm.dims[0], calibration.cm.dims[1]);
  ExpectWrong(calibration, {{"CM.fits", "is transposed: its axes are 52 x 1214, expected 1214 x 52"}});
}

TEST(Check, NamesAFileThatIsNoSuchMatrix) {
  testing::Calibration calibration = Good();
  calibration.m2s.bitpix = -32;
  ExpectWrong(calibration,
              {{"M2S.fits", "expected 52 x 1214 doubles (BITPIX -64), found 52 x 1214 elements with BITPIX -32"}});
}

TEST(Check, NamesAMatrixThatIsTransposedInMemory) {
  testing::Calibration calibration = Good();
  calibration.m2s.values = Transposed(calibration.m2s.values, kSlopes, kModes);
  ExpectWrong(calibration, {{"M2S layout", "it is transposed in memory"}});
  calibration = Good();
  calibration.cm.values = Transposed(calibration.cm.values, kModes, kSlopes);
  ExpectWrong(calibration, {{"CM layout", "it is transposed in memory"}});
}

TEST(Check, NamesExchangedBlocks) {
  testing::Calibration calibration = Good();
  calibration.m2s.values = Exchanged(calibration.m2s.values);
  ExpectWrong(calibration, {{"M2S layout", "its x and y blocks are exchanged: the y block must come first"}});
  calibration.cm.values = InCm(calibration.cm.values, Exchanged);
  ExpectWrong(calibration,
              {{"M2S layout", "x and y blocks are exchanged"}, {"CM layout", "x and y blocks are exchanged"}});
}

TEST(Check, NamesPairsInPlaceOfBlocks) {
  const auto pairs = [](std::size_t first, std::size_t second) {
    testing::Calibration calibration = Good();
    calibration.m2s.values =
        Rearranged(calibration.m2s.values, [=](std::size_t s) { return s / 2 + (s % 2 == 0 ? first : second); });
    return calibration;
  };
  ExpectWrong(pairs(0, kHalf), {{"M2S layout", "its slopes stand in pairs (y, x) instead of in two blocks"}});
  ExpectWrong(pairs(kHalf, 0), {{"M2S layout", "its slopes stand in pairs (x, y) instead of in two blocks"}});
}

TEST(Check, NamesAFlippedSign) {
  testing::Calibration calibration = Good();
  calibration.m2s.values = XFlipped(calibration.m2s.values);
  ExpectWrong(calibration, {{"M2S layout", "the sign of its x block is flipped"}});
  calibration = Good();
  calibration.cm.values = InCm(calibration.cm.values, YFlipped);
  ExpectWrong(calibration, {{"CM layout", "the sign of its y block is flipped"}});
  calibration.m2s.values = YFlipped(calibration.m2s.values);
  ExpectWrong(calibration, {{"M2S layout", "is flipped"}, {"CM layout", "is flipped"}});
}

TEST(Check, NamesASignThatIsFlippedInAllOfOneMatrix) {
  testing::Calibration calibration = Good();
  calibration.m2s.values = XFlipped(YFlipped(calibration.m2s.values));
  ExpectWrong(calibration, {{"CM * M2S", "the sign of one of the two is flipped throughout"}});
}

TEST(Check, NamesSlopesTurnedByARightAngle) {
  testing::Calibration calibration = Good();
  calibration.m2s.values = XFlipped(Exchanged(calibration.m2s.values));
  calibration.cm.values = InCm(calibration.cm.values, [](const Values& cm) { return XFlipped(Exchanged(cm)); });
  const std::string name = "its x and y blocks are exchanged: the y block must come first, and the sign of its x block";
  ExpectWrong(calibration, {{"M2S layout", name}, {"CM layout", name}});
}

TEST(Check, NamesAMatrixInTheOtherOrder) {
  testing::Calibration calibration = Good();
  calibration.m2s.values = ByColumns(calibration.m2s.values);
  calibration.cm.values = InCm(calibration.cm.values, ByColumns);
  const std::string name =
      "its slopes go column by column, from the first row to the last and from left to right, the sub-apertures row by "
      "row, from left to right and from the first row to the last";
  ExpectWrong(calibration, {{"M2S layout", name}, {"CM layout", name}});
}

TEST(Check, NamesAGridWithRowsAndColumnsExchanged) {
  const std::string name = "x and y are exchanged in shs_rois.fits";
  testing::Calibration by_columns = Good();
  for (const char* const column : {"x_low", "x_up", "x_ref", "y_low", "y_up", "y_ref"}) {
    by_columns.rois[column] = Transposed(by_columns.rois[column], 33, 33);
  }
  ExpectWrong(by_columns, {{"M2S layout", name}, {"CM layout", name}});
  testing::Calibration exchanged = Good();
  for (const char* const column : {"low", "up", "ref"}) {
    std::swap(exchanged.rois["x_" + std::string(column)], exchanged.rois["y_" + std::string(column)]);
  }
  ExpectWrong(exchanged, {{"M2S layout", name}, {"CM layout", name}});
}

TEST(Check, TakesNoiseOfAllModesForNoFaultOfOne) {
  testing::Calibration calibration = Good();
  std::mt19937 random(2);
  Eigen::Map<Matrix> m2s(calibration.m2s.values.data(), kSlopes, kModes);
  for (Eigen::Index mode = 0; mode < m2s.cols(); ++mode) {
    std::normal_distribution<double> noise(0.0, 0.75 * m2s.col(mode).norm() / std::sqrt(1214.0));
    for (double& value : m2s.col(mode)) value += noise(random);
  }
  const Matrix cm = PseudoInverse(m2s);
  calibration.cm.values.assign(cm.data(), cm.data() + cm.size());
  const Findings findings = Check(calibration);
  EXPECT_TRUE(std::ranges::none_of(findings, [](const Finding& f) { return f.key == "m2s.noise"; })) << Told(findings);
}

TEST(Check, CountsModesUpInWords) {
  EXPECT_EQ(ModeWords({3}), "mode 3");
  EXPECT_EQ(ModeWords({0, 1}), "modes 0 and 1");
  EXPECT_EQ(ModeWords({1, 5, 7, 8, 9}), "modes 1, 5 and 7 to 9");
  EXPECT_EQ(ModeWords({48, 49, 50, 51}), "modes 48 to 51");
}

/// A calibration whose M2S has another column, and the inverse of that for CM.
testing::Calibration WithMode(std::size_t mode, const std::function<double(std::size_t slope, double was)>& slopes) {
  testing::Calibration calibration = Good();
  for (std::size_t s = 0; s < kSlopes; ++s) {
    double& value = calibration.m2s.values[mode + kModes * s];
    value = slopes(s, value);
  }
  const Matrix cm = PseudoInverse(Eigen::Map<const Matrix>(calibration.m2s.values.data(), kSlopes, kModes));
  calibration.cm.values.assign(cm.data(), cm.data() + cm.size());
  return calibration;
}

TEST(Check, NamesAModeInAnotherLayoutThanTheOthers) {
  ExpectWrong(WithMode(20, [](std::size_t s, double was) { return s < kHalf ? was : -was; }),
              {{"M2S modes", "the slopes of mode 20 are smooth and no wavefront's"}});
}

TEST(Check, NamesANoisyModeAndHowNoisyItIs) {
  std::mt19937 random(1);
  std::normal_distribution<double> noise(0.0, 0.6);  // the slopes of mode 20 are 0.8 RMS along either axis
  const Findings findings = Check(WithMode(20, [&](std::size_t, double was) { return was + noise(random); }));
  ExpectFindings(findings, Verdict::kWrong, {});
  ExpectFindings(findings, Verdict::kDoubtful, {{"M2S modes", " % of the slopes of mode 20 are noise, or"}});
  EXPECT_NE(Told(findings).find("of the others' 0 %"), std::string::npos);
}

TEST(Check, NamesTheOrderOfModes) {
  const auto with_rows_from = [](const std::function<std::size_t(std::size_t)>& from) {
    testing::Calibration calibration = Good();
    const Values before = calibration.cm.values;
    for (std::size_t mode = 0; mode < kModes; ++mode) {
      const auto row = before.begin() + static_cast<std::ptrdiff_t>(kSlopes * from(mode));
      std::copy_n(row, kSlopes, calibration.cm.values.begin() + static_cast<std::ptrdiff_t>(kSlopes * mode));
    }
    return calibration;
  };
  ExpectWrong(with_rows_from([](std::size_t mode) { return kModes - 1 - mode; }),
              {{"CM * M2S", "the modes of one of the two are in reverse order"}});
  ExpectWrong(with_rows_from([](std::size_t mode) { return (mode + 3) % kModes; }),
              {{"CM * M2S", "the modes of one of the two are shifted by 3"}});
  ExpectWrong(with_rows_from([](std::size_t mode) { return mode == 16 || mode == 17 ? 33 - mode : mode; }),
              {{"CM * M2S", "the modes are not in the same order: row 16 of the control matrix gives back mode 17"}});
}

TEST(Check, RefusesSlopesOfNoWavefront) {
  testing::Calibration calibration = Good();
  std::mt19937 random(1);
  for (double& value : calibration.m2s.values) value = std::generate_canonical<double, 53>(random) - 0.5;
  ExpectWrong(calibration, {{"M2S layout", "slopes without order"}, {"CM * M2S", "not the identity in any order"}});
}

TEST(Check, DoubtsAControlMatrixThatFiltersModes) {
  testing::Calibration calibration = Good();
  for (std::size_t s = 0; s < kSlopes; ++s) calibration.cm.values[s] *= 0.9;
  ExpectFindings(Check(calibration), Verdict::kDoubtful, {{"CM * M2S", "identity to 0.1"}});
}

TEST(Check, DoubtsReferencesWithoutAGrid) {
  testing::Calibration calibration = Good();
  std::swap(calibration.rois["x_ref"][0], calibration.rois["x_ref"][1]);
  calibration.rois["x_ref"][1] = calibration.rois["x_ref"][0];
  const Findings findings = Check(calibration);
  ExpectFindings(findings, Verdict::kDoubtful, {{"layout", "cannot be told"}});
}

TEST(Check, TellsLayoutsWhateverTheUnits) {
  for (const double unit : {1e-300, 1e200, 1e300}) {
    testing::Calibration calibration = Good();
    for (double& value : calibration.m2s.values) value *= unit;
    for (double& value : calibration.cm.values) value /= unit;
    const Findings findings = Check(calibration);
    ExpectFindings(findings, Verdict::kWrong, {});
    ExpectFindings(findings, Verdict::kDoubtful, {});
    calibration.m2s.values = XFlipped(calibration.m2s.values);
    EXPECT_NE(Told(Check(calibration)).find("M2S layout: the sign of its x block is flipped"), std::string::npos)
        << unit;
  }
}

// --- Mistakes in values

TEST(Check, TellsThatAMatrixIsZero) {
  testing::Calibration calibration = Good();
  std::ranges::fill(calibration.m2s.values, 0.0);
  ExpectWrong(calibration, {{"M2S values", "all zeros"}});
}

TEST(Check, NamesTheFirstValueThatIsNotFinite) {
  testing::Calibration calibration = Good();
  calibration.m2s.values[3 + kModes * 17] = std::numeric_limits<double>::quiet_NaN();
  calibration.cm.values[5 + kSlopes * 2] = std::numeric_limits<double>::infinity();
  ExpectWrong(calibration, {{"M2S values", "slope 17, mode 3 is nan"}, {"CM values", "mode 2, slope 5 is inf"}});
}

TEST(Check, NamesFlagsOfAPupilWithAnotherObscuration) {
  for (const double obscuration : {0.05, 0.125, 0.17, 0.23, 0.275, 0.33, 0.376, 0.42, kLargestObscuration}) {
    const TempDir folder;
    Calibration made = MakeCalibration({.obscuration = obscuration}, ZernikeBasis());
    const std::vector<std::uint8_t> right = std::exchange(made.used, UsedFlags({}));
    ASSERT_NE(made.used, right);
    WriteCalibration(folder.Path(), false, made);
    const auto examination = CheckCalibration(folder.Path());
    EXPECT_NE(std::ranges::find(examination.findings, "flags.pupil", &Finding::key), examination.findings.end());
    const auto corrected = Corrected(*examination.content, examination.findings);
    ASSERT_TRUE(corrected) << obscuration;
    EXPECT_EQ(corrected->used, right) << obscuration;
  }
}

/// The slopes of either block in another order: entry k is what was entry from(k).
template <typename From>
void Reorder(Matrix& m2s, const From& from) {
  const Matrix before = m2s;
  for (Eigen::Index k = 0; k < 607; ++k) {
    m2s.row(k) = before.row(from(k));
    m2s.row(607 + k) = before.row(607 + from(k));
  }
}

TEST(Check, BlamesTheMatrixWhoseSlopesAreOutOfPlace) {
  // From the last to the first the slopes are almost as smooth, for the pupil is almost the same upside down.
  for (const std::string basis : {"zernike", "karhunen-loeve"}) {
    const TempDir folder;
    Calibration made = MakeCalibration({}, BasisByWord(basis));
    const Matrix right = made.m2s;
    Reorder(made.m2s, [](Eigen::Index k) { return 606 - k; });
    WriteCalibration(folder.Path(), false, made);
    const auto examination = CheckCalibration(folder.Path());
    const auto corrected = Corrected(*examination.content, examination.findings);
    ASSERT_TRUE(corrected) << basis;
    EXPECT_EQ(corrected->cm, made.cm) << basis;
    EXPECT_LT((corrected->m2s - right).cwiseAbs().maxCoeff(), 1e-9) << basis;
  }
}

TEST(Check, NamesAListThatBeginsWithAnotherSubaperture) {
  const auto shifted = [](Eigen::Index k) { return (k + 1) % 607; };
  const std::string name = "its list begins with another sub-aperture: its slopes stand 1 place too early";
  const auto expect_put_right = [](const Examination& examination, const Calibration& right) {
    const auto corrected = Corrected(*examination.content, examination.findings);
    ASSERT_TRUE(corrected) << Told(examination.findings);
    EXPECT_EQ(corrected->m2s, right.m2s);
    EXPECT_EQ(corrected->cm, right.cm);
  };
  for (const std::string basis : {"zernike", "karhunen-loeve"}) {
    const TempDir folder;
    const Calibration right = MakeCalibration({}, BasisByWord(basis));
    Calibration made = right;
    Reorder(made.m2s, shifted);
    WriteCalibration(folder.Path(), false, made);
    const auto of_m2s = CheckCalibration(folder.Path());
    ExpectFindings(of_m2s.findings, Verdict::kWrong, {{"M2S layout", name}});
    expect_put_right(of_m2s, right);

    Matrix transposed = made.cm.transpose();
    Reorder(transposed, shifted);
    made.cm = transposed.transpose();
    WriteCalibration(folder.Path(), true, made);
    const auto of_both = CheckCalibration(folder.Path());
    ExpectFindings(of_both.findings, Verdict::kWrong, {{"M2S layout", name}, {"CM layout", name}});
    expect_put_right(of_both, right);

    made.m2s = right.m2s;
    WriteCalibration(folder.Path(), true, made);
    const auto of_cm = CheckCalibration(folder.Path());
    ExpectFindings(of_cm.findings, Verdict::kWrong, {{"CM layout", name}});
    expect_put_right(of_cm, right);
  }
}

TEST(Check, MakesNoControlMatrixOfNoise) {
  const TempDir folder;
  Calibration made = MakeCalibration({}, ZernikeBasis());
  std::mt19937 random(3);
  std::normal_distribution<double> noise(0.0, 0.5 * made.m2s.norm() / std::sqrt(static_cast<double>(made.m2s.size())));
  for (double& slope : made.m2s.reshaped()) slope += 2.0 * noise(random);
  WriteCalibration(folder.Path(), false, made);
  const auto examination = CheckCalibration(folder.Path());
  const auto layout = std::ranges::find(examination.findings, "m2s.layout", &Finding::key);
  ASSERT_NE(layout, examination.findings.end());
  EXPECT_EQ(layout->verdict, Verdict::kDoubtful) << layout->text;
  const auto inverse = std::ranges::find(examination.findings, "cm.inverse", &Finding::key);
  ASSERT_NE(inverse, examination.findings.end());
  EXPECT_NE(inverse->verdict, Verdict::kGood);
  EXPECT_FALSE(Corrected(*examination.content, examination.findings));
}

TEST(Check, NamesExchangedMatrices) {
  testing::Calibration calibration = Good();
  std::swap(calibration.m2s, calibration.cm);
  const Findings findings = Check(calibration);
  EXPECT_EQ(Only(findings, Verdict::kWrong).size(), 2U);
  for (const Finding& finding : Only(findings, Verdict::kWrong)) {
    EXPECT_NE(finding.advice.find("exchange M2S.fits and CM.fits"), std::string::npos) << finding.advice;
  }
}

TEST(Check, NamesShiftedReferences) {
  const std::vector<std::pair<double, std::string>> shifts = {
      {0.5, "half a pixel too high: pixel centres are at integers"},
      {-0.5, "half a pixel too low"},
      {1.0, "one pixel too high: pixels are counted from 0"},
      {-1.0, "one pixel too low"}};
  for (const auto& [shift, name] : shifts) {
    for (const std::string axis : {"x_ref", "y_ref"}) {
      testing::Calibration calibration = Good();
      for (double& value : calibration.rois[axis]) value += shift;
      ExpectWrong(calibration, {{axis, name}});
    }
  }
}

TEST(Check, DoubtsReferencesThatAreFarOff) {
  testing::Calibration calibration = Good();
  for (double& value : calibration.rois["x_ref"]) value -= 3.0;
  const Findings findings = Check(calibration);
  ExpectFindings(findings, Verdict::kWrong, {});
  ExpectFindings(
      findings, Verdict::kDoubtful,
      {{"x_ref", "-3.00 pixels from the middle of the regions, scattered by 0.00 RMS: far from where spots"}});
}

TEST(Check, NamesAPixelThatIsMissingOfEachRegion) {
  testing::Calibration calibration = Good();
  for (double& value : calibration.rois["x_up"]) value -= 1.0;
  for (double& value : calibration.rois["y_low"]) value += 1.0;
  const Findings findings = Check(calibration);
  ExpectFindings(findings, Verdict::kDoubtful,
                 {{"x_ref", "a pixel is missing above each region: upper bounds are exclusive here"},
                  {"y_ref", "a pixel is missing below each region: pixels are counted from 0 here"}});
}

TEST(Check, NamesAShiftThatScatters) {
  testing::Calibration calibration = Good();
  std::vector<double>& x_ref = calibration.rois["x_ref"];
  for (std::size_t i = 0; i < x_ref.size(); ++i) x_ref[i] += 0.4 + 0.1 * static_cast<double>(i % 3);
  ExpectWrong(calibration, {{"x_ref", "+0.50 pixels from the middle of the regions, scattered by 0.08 RMS; half a"}});
}

TEST(Check, NamesAReferenceOutsideItsRegion) {
  testing::Calibration calibration = Good();
  calibration.rois["y_ref"][34] = 70.0;
  ExpectWrong(calibration, {{"references",
                             "that of sub-aperture 34 is at (59.5, 70), outside its columns 48 to 71, rows 36 to 59"}});
  calibration.rois["y_ref"][34] = 47.5;
  calibration.rois["x_ref"][34] = 90.0;
  ExpectWrong(calibration, {{"references",
                             "that of sub-aperture 34 is at (90, 47.5), outside its columns 48 to 71, rows 36 to 59"}});
  calibration.rois["x_ref"][34] = 59.5;
  calibration.rois["y_ref"][34] = std::numeric_limits<double>::quiet_NaN();
  ExpectWrong(calibration, {{"references", "that of sub-aperture 34 is (59.5, nan): no spot is drawn there"}});
}

TEST(Check, TellsOverlapsAndGaps) {
  testing::Calibration calibration = Good();
  calibration.rois["x_up"][40] += 2.0;
  ExpectFindings(Check(calibration), Verdict::kDoubtful, {{"regions", "; 48 pixels are in more than one region"}});
  calibration = Good();
  calibration.rois["x_up"][40] -= 3.0;
  const Findings findings = Check(calibration);
  EXPECT_NE(Told(findings).find("without overlaps; 72 pixels between them are in none"), std::string::npos);
  calibration.rois["x_up"][40] = calibration.rois["x_low"][40];
  calibration.rois["x_ref"][40] = calibration.rois["x_low"][40] - 0.5;
  ExpectFindings(Check(calibration), Verdict::kWrong, {{"regions", "1 regions have no pixel"}});
}

TEST(Check, TellsThatNoRegionHasAPixel) {
  testing::Calibration calibration = Good();
  for (const char* const column : {"x_low", "x_up", "y_low", "y_up", "x_ref", "y_ref"}) {
    std::ranges::fill(calibration.rois[column], 0.0);
  }
  ExpectFindings(Check(calibration), Verdict::kWrong,
                 {{"regions", "none of them has a pixel"}, {"references", "outside its columns 0 to -1"}});
}

TEST(Check, TellsWhatTheSimulatorDoesWithTheFlags) {
  testing::Calibration fewer = Good();
  *std::ranges::find(fewer.rois_used["is_used"], 1.0) = 0.0;
  ExpectWrong(fewer, {{"usage flags",
                       "606 of 1089 are set, expected 607 of 1089: the last 1 elements of either block of "
                       "the slope vector stay 0"}});
  testing::Calibration more = Good();
  more.rois_used["is_used"][1088] = 1.0;
  ExpectWrong(more, {{"usage flags", "608 of 1089 are set, expected 607 of 1089: sub-apertures after 1"}});
  testing::Calibration shorter = Good();
  shorter.rois_used.Resize(500);
  ExpectWrong(shorter, {{"usage flags", "expected 607 of 1089: ComputeSlopes ends the process where they end"}});
  testing::Calibration longer = Good();
  longer.rois_used.Resize(1100);
  ExpectFindings(Check(longer), Verdict::kDoubtful, {{"usage flags", "607 of 1100 are set, expected 607 of 1089"}});
}

TEST(Check, TellsWhyTheLibraryRefusesIt) {
  testing::Calibration calibration = Good();
  calibration.rois["x_up"][5] = 841.0;
  ExpectWrong(calibration,
              {{"shs_rois.fits", "region 5 (counted from 0) has columns from 144 up to 841, the frame has 840"}});
  calibration.rois["x_up"][5] = 143.0;
  ExpectWrong(calibration,
              {{"shs_rois.fits", "region 5 (counted from 0) has columns from 144 up to 143, the frame has 840"}});
  calibration = Good();
  calibration.rois["x_ref"][5] = 841.0;
  ExpectWrong(calibration, {{"loading", "the library refuses it: "}});
}

TEST(Check, NamesTablesThatTheLibraryDoesNotRead) {
  testing::Calibration calibration = Good();
  calibration.rois.Resize(1088);
  ExpectWrong(calibration, {{"shs_rois.fits", "the table rois has 1088 rows, expected 1089"}});
  calibration = Good();
  calibration.rois.columns[0].name = "X_LOW";
  ExpectWrong(calibration, {{"shs_rois.fits", "the table rois has no column x_low, only one in capitals"}});
  calibration = Good();
  calibration.rois_used.Remove("is_used");
  ExpectWrong(calibration, {{"shs_rois.fits", "the table rois_used has no column is_used"}});
}

TEST(Check, NamesSwappedBytesAndPutsThemRight) {
  testing::Calibration calibration = Good();
  for (double& value : calibration.m2s.values) {
    auto bytes = std::bit_cast<std::array<char, sizeof(double)>>(value);
    std::ranges::reverse(bytes);
    value = std::bit_cast<double>(bytes);
  }
  const Findings findings = Check(calibration);
  ExpectFindings(findings, Verdict::kWrong, {{"M2S values", "the bytes of its numbers are in the wrong order"}});
  const auto found = std::ranges::find(findings, "m2s.values", &Finding::key);
  ASSERT_EQ(found->corrections.size(), 1U);
  CalibrationContent content;
  content.m2s = Eigen::Map<const Matrix>(calibration.m2s.values.data(), kSlopes, kModes);
  found->corrections.front().apply(content);
  EXPECT_EQ(content.m2s, MakeCalibration().m2s);
}

TEST(Check, NamesACompressedFile) {
  const TempDir folder;
  WriteCalibration(folder.Path(), false);
  ASSERT_EQ(testing::Run("gzip " + (folder / "data/CM.fits") + " && mv " + (folder / "data/CM.fits.gz") + " " +
                         (folder / "data/CM.fits"))
                .exit_code,
            0);
  ExpectFindings(CheckCalibration(folder.Path()).findings, Verdict::kWrong, {{"CM.fits", "it is compressed"}});
}

// --- Files that are not there

const Finding& Of(const Findings& findings, const std::string& key) {
  const auto found = std::ranges::find(findings, key, &Finding::key);
  if (found == findings.end()) throw std::out_of_range("no finding has the key " + key);
  return *found;
}

std::vector<std::string> Keys(const Findings& findings) {
  std::vector<std::string> keys;
  std::ranges::transform(findings, std::back_inserter(keys), &Finding::key);
  return keys;
}

TEST(Check, ExaminesTheFilesThatAreThere) {
  using Strings = std::vector<std::string>;
  const Strings regions = {"regions.coverage", "flags.count", "references.inside", "references.offset_x",
                           "references.offset_y"};
  const std::vector<std::tuple<std::string, std::string, Strings>> cases = {
      {"M2S.fits", "m2s.file", {"cm.values", "cm.layout"}},
      {"CM.fits", "cm.file", {"m2s.values", "m2s.layout"}},
      {"shs_rois.fits", "rois.file", {"m2s.values", "cm.values", "cm.inverse"}}};
  for (const auto& [name, key, rest] : cases) {
    const TempDir folder;
    WriteCalibration(folder.Path(), false);
    const std::string path = folder / ("data/" + name);
    std::filesystem::remove(path);
    const auto [findings, content] = CheckCalibration(folder.Path());
    EXPECT_FALSE(content);
    Strings expected = {"m2s.file", "cm.file", "rois.file"};
    if (key != "rois.file") expected.insert(expected.end(), regions.begin(), regions.end());
    expected.insert(expected.end(), rest.begin(), rest.end());
    expected.emplace_back("skipped");
    EXPECT_EQ(Keys(findings), expected);
    for (const Finding& finding : findings) {
      const Verdict verdict = finding.key == key         ? Verdict::kWrong
                              : finding.key == "skipped" ? Verdict::kDoubtful
                                                         : Verdict::kGood;
      EXPECT_EQ(finding.verdict, verdict) << finding.key << " " << finding.text;
    }
    EXPECT_EQ(Of(findings, key).text, "no calibration in " + folder.Path() + ": " + path +
                                          " is missing; 'quen-shs calibrate " + folder.Path() +
                                          "' makes a synthetic one");
  }
}

TEST(Check, NamesMistakesBesideAMissingFile) {
  const TempDir folder;
  testing::Calibration calibration = Good();
  calibration.cm.values = InCm(calibration.cm.values, Exchanged);
  for (double& value : calibration.rois["x_ref"]) value += 0.5;
  calibration.Write(folder.Path());
  std::filesystem::remove(folder / "data/M2S.fits");
  ExpectFindings(CheckCalibration(folder.Path()).findings, Verdict::kWrong,
                 {{"M2S.fits", "is missing"}, {"x_ref", "half a"}, {"CM layout", "x and y blocks are exchanged"}});
  ExpectFindings(CheckCalibration(folder / "data").findings, Verdict::kDoubtful,
                 {{"not examined", "the layout of M2S, its modes and sub-apertures; CM * M2S"}});
}

TEST(Check, NamesEachFileThatCannotBeRead) {
  const TempDir folder;
  WriteCalibration(folder.Path(), false);
  std::filesystem::remove(folder / "data/M2S.fits");
  std::filesystem::create_directory(folder / "data/M2S.fits");
  std::filesystem::remove(folder / "data/CM.fits");
  std::filesystem::create_symlink("CM.fits", folder / "data/CM.fits");
  ExpectFindings(CheckCalibration(folder.Path()).findings, Verdict::kWrong,
                 {{"M2S.fits", "data/M2S.fits: expected a file, found a folder"},
                  {"CM.fits", "data/CM.fits: cannot be read: Too many levels of symbolic links"}});
}

TEST(Check, ExaminesWhatADamagedFileLeaves) {
  testing::Calibration calibration = Good();
  calibration.m2s.values = XFlipped(calibration.m2s.values);
  std::swap(calibration.cm.dims[0], calibration.cm.dims[1]);
  ExpectWrong(calibration, {{"CM.fits", "is transposed"}, {"M2S layout", "the sign of its x block is flipped"}});
  calibration = Good();
  calibration.m2s.values[5] = std::numeric_limits<double>::quiet_NaN();
  std::swap(calibration.cm.dims[0], calibration.cm.dims[1]);
  ExpectWrong(calibration, {{"CM.fits", "is transposed"}, {"M2S values", "is nan"}});
}

TEST(Check, HasNothingToSayWhereAllFilesAreMissing) {
  const TempDir folder;
  testing::ExpectThrows<std::runtime_error>("no calibration in " + folder.Path() + ": " + (folder / "data/M2S.fits") +
                                                " is missing; 'quen-shs calibrate " + folder.Path() +
                                                "' makes a synthetic one",
                                            [&] { CheckCalibration(folder.Path()); });
}

}  // namespace
}  // namespace quen::workbench
