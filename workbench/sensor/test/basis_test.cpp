#include "workbench/sensor/basis.hpp"

#include <gtest/gtest.h>

#include <filesystem>

#include "testing/environment.hpp"
#include "testing/fits_files.hpp"
#include "workbench/sensor/calibration.hpp"
#include "workbench/sensor/zernike.hpp"

namespace quen::workbench {
namespace {

TEST(ZernikeBasis, IsOneZernikeModePerMode) {
  const Basis basis = ZernikeBasis();
  EXPECT_EQ(basis.coefficients, Eigen::MatrixXd::Identity(52, 52));
  EXPECT_EQ(basis.variances(0), KolmogorovVariance(2));
  EXPECT_EQ(basis.variances(51), KolmogorovVariance(53));
}

TEST(KarhunenLoeveBasis, IsOrthonormal) {
  const Basis basis = KarhunenLoeveBasis();
  ASSERT_EQ(basis.coefficients.rows(), 230);
  ASSERT_EQ(basis.coefficients.cols(), 52);
  const Eigen::MatrixXd products = basis.coefficients.transpose() * basis.coefficients;
  EXPECT_LT((products - Eigen::MatrixXd::Identity(52, 52)).cwiseAbs().maxCoeff(), 1e-13);
}

TEST(KarhunenLoeveBasis, HasUncorrelatedModes) {
  const Basis basis = KarhunenLoeveBasis();
  const Eigen::MatrixXd covariance = Eigen::MatrixXd::NullaryExpr(230, 230, [](Eigen::Index a, Eigen::Index b) {
    return KolmogorovCovariance(2 + static_cast<int>(a), 2 + static_cast<int>(b));
  });
  const Eigen::MatrixXd modal = basis.coefficients.transpose() * covariance * basis.coefficients;
  const Eigen::MatrixXd expected = basis.variances.asDiagonal();
  EXPECT_LT((modal - expected).cwiseAbs().maxCoeff(), 1e-14);
}

TEST(KarhunenLoeveBasis, BeginsWithTheLargestVariance) {
  const Basis basis = KarhunenLoeveBasis();
  for (Eigen::Index mode = 1; mode < 52; ++mode) EXPECT_LE(basis.variances(mode), basis.variances(mode - 1)) << mode;
  // Nearly all of the first two is tip and tilt, the cosine first, and no mode begins with a minus sign.
  EXPECT_GT(basis.coefficients(0, 0), 0.99);
  EXPECT_GT(basis.coefficients(1, 1), 0.99);
  for (Eigen::Index mode = 0; mode < 52; ++mode) {
    EXPECT_GT(basis.coefficients.col(mode).maxCoeff(), -basis.coefficients.col(mode).minCoeff()) << mode;
  }
}

TEST(KarhunenLoeveBasis, EqualVariancesGoByAzimuthalOrderAndCosinesFirst) {
  const Basis basis = KarhunenLoeveBasis();
  const auto largest = [&](Eigen::Index mode) {
    Eigen::Index row = 0;
    basis.coefficients.col(mode).maxCoeff(&row);
    return 2 + static_cast<int>(row);  // the Zernike mode that it is like
  };
  int ties = 0;
  for (Eigen::Index mode = 1; mode < 52; ++mode) {
    if (basis.variances(mode) != basis.variances(mode - 1)) continue;
    const int before = largest(mode - 1);
    const int after = largest(mode);
    ++ties;
    if (NollOrders(before).m == NollOrders(after).m) {
      EXPECT_TRUE(IsCosine(before) && !IsCosine(after)) << mode;
    } else {
      EXPECT_EQ(NollOrders(before).m, 0) << mode;
      EXPECT_EQ(NollOrders(after).m, 2) << mode;
    }
  }
  EXPECT_GT(ties, 25);  // every function with a cosine has its sine
}

TEST(KarhunenLoeveBasis, TakesMoreOfTheTurbulenceThanZernikeModes) {
  const double zernike = ZernikeBasis().variances.sum();
  const double karhunen_loeve = KarhunenLoeveBasis().variances.sum();
  EXPECT_GT(karhunen_loeve, zernike);
  EXPECT_LT(karhunen_loeve, 1.0299);  // all of it, after Noll
}

TEST(BasisOfCalibration, IsTheOneItWasMadeWith) {
  const testing::TempDir folder;
  WriteCalibration(folder / "z", false);
  WriteCalibration(folder / "k", false, MakeCalibration({}, KarhunenLoeveBasis()));
  EXPECT_EQ(BasisOfCalibration(InputFile(folder / "z/data/M2S.fits")).variances, ZernikeBasis().variances);
  EXPECT_EQ(BasisOfCalibration(InputFile(folder / "k/data/M2S.fits")).variances, KarhunenLoeveBasis().variances);
}

TEST(BasisOfCalibration, IsZernikeWhereItDoesNotSay) {
  const testing::TempDir folder;
  std::filesystem::create_directory(folder / "data");
  testing::WriteImage(folder / "data/M2S.fits", DOUBLE_IMG, {52, 1214}, {});
  EXPECT_EQ(BasisOfCalibration(InputFile(folder / "data/M2S.fits")).variances, ZernikeBasis().variances);
}

}  // namespace
}  // namespace quen::workbench
