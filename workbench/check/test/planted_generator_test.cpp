#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

#include "workbench/check/test/planted.hpp"

// That what is planted is what it is said to be.

namespace quen::workbench::planted {
namespace {

using Eigen::Index;

constexpr double kRounding = 1e-9;  // of sums of some thousand products

std::vector<Recipe> PlantedRecipes() {
  std::vector<Recipe> recipes;
  for (const Modes modes : {Modes::kSquareMirror, Modes::kHexagonalMirror, Modes::kFourier, Modes::kZernike}) {
    for (const auto& pupil : Pupils()) recipes.push_back({.modes = modes, .pupil = pupil});
    for (const auto& lenslets : LensletArrays()) recipes.push_back({.modes = modes, .lenslets = lenslets});
    for (const double noise : {0.05, 0.2}) recipes.push_back({.modes = modes, .noise = noise});
  }
  return recipes;
}

std::vector<std::size_t> UsedPlaces(const CalibrationContent& content) {
  std::vector<std::size_t> places;
  for (std::size_t i = 0; i < content.used.size(); ++i) {
    if (content.used[i] != 0) places.push_back(i);
  }
  return places;
}

TEST(PlantedCalibration, HasTheSizesOfACalibration) {
  for (const Recipe& recipe : PlantedRecipes()) {
    const CalibrationContent& content = Made(recipe);
    EXPECT_EQ(content.m2s.rows(), 2 * kUsed);
    EXPECT_EQ(content.m2s.cols(), 52);
    EXPECT_EQ(content.cm.rows(), 52);
    EXPECT_EQ(content.cm.cols(), 2 * kUsed);
    EXPECT_EQ(content.rois.size(), 1089U);
    EXPECT_EQ(content.used.size(), 1089U);
    EXPECT_EQ(UsedPlaces(content).size(), 607U) << Name(recipe);
  }
}

TEST(PlantedCalibration, HasTheInverseForAControlMatrix) {
  for (const Recipe& recipe : PlantedRecipes()) {
    const CalibrationContent& content = Made(recipe);
    const Matrix product = content.cm * content.m2s;
    EXPECT_LT((product - Matrix::Identity(52, 52)).cwiseAbs().maxCoeff(), kRounding) << Name(recipe);
  }
}

TEST(PlantedCalibration, HasTheGradientsOfTiltAndDefocus) {
  constexpr double kPixels = 8.0;  // for a phase that rises by one across the pupil's radius
  for (const auto& lenslets : LensletArrays()) {
    const CalibrationContent& content = Made({.modes = Modes::kZernike, .lenslets = lenslets});
    const std::vector<std::size_t> places = UsedPlaces(content);
    double per_pixel = 0.0;
    for (std::size_t k = 0; k < places.size(); ++k) {
      const auto y = static_cast<Index>(k);
      const Index x = kUsed + y;
      EXPECT_NEAR(content.m2s(x, 0), 2.0 * kPixels, kRounding);  // 2 r cos
      EXPECT_NEAR(content.m2s(y, 0), 0.0, kRounding);
      EXPECT_NEAR(content.m2s(x, 1), 0.0, kRounding);
      EXPECT_NEAR(content.m2s(y, 1), 2.0 * kPixels, kRounding);
      if (lenslets.scatter > 0.0) continue;
      // √3 (2 r² − 1) rises by 4 √3 times the distance from the middle.
      const double column = content.rois[places[k]].x_ref - 419.5 - lenslets.shift;
      const double row = content.rois[places[k]].y_ref - 407.5 - lenslets.shift;
      if (k == 0) per_pixel = content.m2s(y, 2) / row;
      EXPECT_NEAR(content.m2s(x, 2), per_pixel * column, kRounding * 100.0) << lenslets.name;
      EXPECT_NEAR(content.m2s(y, 2), per_pixel * row, kRounding * 100.0) << lenslets.name;
    }
    if (lenslets.scatter > 0.0) continue;
    const double radius = 4.0 * std::numbers::sqrt3 * kPixels / per_pixel / lenslets.pitch;
    EXPECT_GT(radius, 14.0);
    EXPECT_LT(radius, 15.0);
  }
}

/// Mean square of what is left once around four neighbours, over that of slopes without order.
double CurlOf(const CalibrationContent& content) {
  std::vector<Index> number(1089, -1);
  for (Index k = 0; const std::size_t i : UsedPlaces(content)) number[i] = k++;
  constexpr std::size_t kRow = kAcross;
  constexpr std::size_t kDiagonal = kRow + 1;
  double sum = 0.0;
  double count = 0.0;
  for (std::size_t i = 0; i + kDiagonal < number.size(); ++i) {
    const Index a = number[i];
    const Index b = number[i + 1];
    const Index c = number[i + kDiagonal];
    const Index d = number[i + kRow];
    if (i % kRow == kRow - 1 || a < 0 || b < 0 || c < 0 || d < 0) continue;
    const auto row = [&](Index s) { return content.m2s.row(s); };
    const Eigen::RowVectorXd around =
        row(kUsed + a) + row(kUsed + b) + row(b) + row(c) - row(kUsed + c) - row(kUsed + d) - row(d) - row(a);
    sum += around.squaredNorm();
    count += 8.0;
  }
  return sum / count / (content.m2s.squaredNorm() / static_cast<double>(content.m2s.rows()));
}

TEST(PlantedCalibration, HasSlopesThatAreGradients) {
  for (const Recipe& recipe : PlantedRecipes()) {
    if (recipe.noise > 0.0 || recipe.lenslets.turn != 0.0) continue;  // a square of turned slopes is not one of these
    EXPECT_LT(CurlOf(Made(recipe)), 0.01) << Name(recipe);
    CalibrationContent mistaken = Made(recipe);
    mistaken.m2s.topRows(kUsed) *= -1.0;
    EXPECT_GT(CurlOf(mistaken), 5.0 * CurlOf(Made(recipe))) << Name(recipe);
  }
}

TEST(PlantedCalibration, HasTheNoiseThatItIsSaidToHave) {
  const CalibrationContent& noiseless = Made({.modes = Modes::kFourier});
  for (const double noise : {0.05, 0.2}) {
    const CalibrationContent& noisy = Made({.modes = Modes::kFourier, .noise = noise});
    EXPECT_NEAR((noisy.m2s - noiseless.m2s).norm() / noiseless.m2s.norm(), noise, 0.02 * noise);
  }
  const CalibrationContent& half = Made({.modes = Modes::kFourier, .noise = 0.2, .has_cm_of_noiseless = true});
  EXPECT_EQ(half.cm, noiseless.cm);
  EXPECT_NE(half.m2s, noiseless.m2s);
}

TEST(PlantedCalibration, ScattersAndShiftsItsReferences) {
  for (const auto& lenslets : LensletArrays()) {
    const CalibrationContent& content = Made({.lenslets = lenslets});
    double sum = 0.0;
    double squares = 0.0;
    for (const auto& roi : content.rois) {
      EXPECT_EQ(roi.width, lenslets.size);
      EXPECT_EQ(roi.height, lenslets.size);
      const double off = roi.x_ref - (roi.x_low + roi.x_up - 1) / 2.0;
      sum += off;
      squares += off * off;
    }
    const double mean = sum / 1089.0;
    const double spread = std::sqrt(squares / 1089.0 - mean * mean);
    if (lenslets.pitch == 24.0 && lenslets.shift == 0.0 && lenslets.size == 24) {
      EXPECT_NEAR(mean, lenslets.offset_x, 0.03) << lenslets.name;
      EXPECT_NEAR(spread, lenslets.scatter, 0.02) << lenslets.name;
    }
  }
}

// --- Mistakes

TEST(PlantedMistake, ChangesTheCalibrationAndIsUndone) {
  const CalibrationContent& good =
      Made({.modes = Modes::kSquareMirror, .pupil = Pupils().at(7), .lenslets = LensletArrays().at(2)});
  for (const Mistake& mistake : AllMistakes()) {
    CalibrationContent content = good;
    mistake.Plant(content);
    EXPECT_LT(SameParts(content, good), kParts) << Name(mistake);
    EXPECT_FALSE(AreSame(content, good)) << Name(mistake);
    if (!mistake.Undo) continue;
    mistake.Undo(content);
    EXPECT_EQ(SameParts(content, good), kParts) << Name(mistake);
  }
}

TEST(PlantedMistake, InBothMatricesLeavesThemInverse) {
  for (const Mistake& mistake : LayoutMistakes(Place::kBoth)) {
    if (mistake.word == "transposed_in_memory") continue;
    CalibrationContent content = Made({.modes = Modes::kFourier});
    mistake.Plant(content);
    EXPECT_LT((content.cm * content.m2s - Matrix::Identity(52, 52)).cwiseAbs().maxCoeff(), kRounding) << Name(mistake);
  }
}

TEST(PlantedMistake, HasANameOfItsOwn) {
  std::vector<std::string> names;
  for (const Mistake& mistake : AllMistakes()) names.push_back(Name(mistake));
  std::ranges::sort(names);
  EXPECT_EQ(std::ranges::adjacent_find(names), names.end());
}

// --- Comparing

TEST(PlantedComparison, SeesASmallDifference) {
  const CalibrationContent& good = Made({});
  CalibrationContent content = good;
  content.m2s(100, 7) += 1e-8 * good.m2s.cwiseAbs().maxCoeff();
  EXPECT_FALSE(AreSame(content, good));
  content = good;
  content.rois[3].x_ref += 1e-6;
  EXPECT_FALSE(AreSame(content, good));
  content = good;
  content.m2s *= -1.0;
  EXPECT_FALSE(AreSameButForSign(content, good));
  content.cm *= -1.0;
  EXPECT_FALSE(AreSame(content, good));
  EXPECT_TRUE(AreSameButForSign(content, good));
}

TEST(PlantedComparison, SeesThatAnotherOrderOfAllListsIsTheSame) {
  const CalibrationContent& good = Made({});
  for (const auto& variation : Variations()) {
    CalibrationContent content = good;
    variation.apply(content);
    EXPECT_EQ(AreSame(content, good), variation.name == "unchanged" || variation.name.starts_with("listed"))
        << variation.name;
  }
}

}  // namespace
}  // namespace quen::workbench::planted
