#include "workbench/sensor/basis.hpp"

#include <algorithm>

#include "common/fits/fits.hpp"
#include "workbench/fits/content.hpp"
#include "workbench/sensor/dimensions.hpp"
#include "workbench/sensor/matrices.hpp"
#include "workbench/sensor/zernike.hpp"

namespace quen::workbench {
namespace {

constexpr int kLastZernike = 231;
constexpr const char* kKarhunenLoeveTitle = "Karhunen-Loeve (Kolmogorov)";

/// A Karhunen-Loève function: the Zernike modes of one azimuthal order that it is made of.
struct Function {
  double variance;
  std::vector<int> zernikes;
  Eigen::VectorXd coefficients;
};

/// Zernike modes of an azimuthal order, cosines or sines, from piston's neighbours on: only they are correlated.
std::vector<int> Family(int m, bool is_cosine) {
  std::vector<int> family;
  for (int j = kFirstZernike; j <= kLastZernike; ++j) {
    if (NollOrders(j).m == m && IsCosine(j) == is_cosine) family.push_back(j);
  }
  return family;
}

Eigen::MatrixXd Covariance(const std::vector<int>& family) {
  const auto size = static_cast<Eigen::Index>(family.size());
  return Eigen::MatrixXd::NullaryExpr(size, size, [&](Eigen::Index a, Eigen::Index b) {
    return KolmogorovCovariance(family[static_cast<std::size_t>(a)], family[static_cast<std::size_t>(b)]);
  });
}

/// Appends the functions of the radial orders n, n + 2, …: those of azimuthal order n, and, for n = 2, where piston is
/// missing, of order 0. Their covariances are the same, and one decomposition serves them all: equal variances are then
/// equal to the bit, and keep their order.
void AppendFunctions(int n, std::vector<Function>& functions) {
  std::vector<std::vector<int>> families = {Family(n, true), Family(n, false)};
  if (n == 2) families.insert(families.begin(), Family(0, true));
  const Eigensystem eigen = EigensystemOf(Covariance(families.front()));
  for (Eigen::Index k = 0; k < eigen.values.size(); ++k) {
    Eigen::VectorXd vector = eigen.vectors.col(k);
    Eigen::Index largest = 0;
    vector.cwiseAbs().maxCoeff(&largest);
    if (vector(largest) < 0.0) vector = -vector;
    for (const std::vector<int>& family : families) functions.push_back({eigen.values(k), family, vector});
  }
}

}  // namespace

Basis ZernikeBasis() {
  constexpr auto kModes = static_cast<Eigen::Index>(kNumModes);
  return {"Zernike (Noll 2-53)", Eigen::MatrixXd::Identity(kModes, kModes),
          Eigen::VectorXd::NullaryExpr(
              kModes, [](Eigen::Index mode) { return KolmogorovVariance(kFirstZernike + static_cast<int>(mode)); })};
}

Basis KarhunenLoeveBasis() {
  std::vector<Function> functions;
  for (int n = 1; n <= NollOrders(kLastZernike).n; ++n) AppendFunctions(n, functions);
  std::ranges::stable_sort(functions, std::ranges::greater(), &Function::variance);

  constexpr auto kModes = static_cast<Eigen::Index>(kNumModes);
  Basis basis = {kKarhunenLoeveTitle, Eigen::MatrixXd::Zero(kLastZernike - kFirstZernike + 1, kModes),
                 Eigen::VectorXd(kModes)};
  for (Eigen::Index mode = 0; mode < kModes; ++mode) {
    const Function& function = functions[static_cast<std::size_t>(mode)];
    basis.variances(mode) = function.variance;
    for (std::size_t k = 0; k < function.zernikes.size(); ++k) {
      basis.coefficients(function.zernikes[k] - kFirstZernike, mode) =
          function.coefficients(static_cast<Eigen::Index>(k));
    }
  }
  return basis;
}

Basis BasisByWord(const std::string& word) {
  return word == kKarhunenLoeveWord ? KarhunenLoeveBasis() : ZernikeBasis();
}

Basis BasisOfCalibration(const InputFile& m2s) {
  const quen::common::Fits::Handle file = OpenFits(m2s, std::nullopt);
  return TextKey(m2s, file, "BASIS") == kKarhunenLoeveTitle ? KarhunenLoeveBasis() : ZernikeBasis();
}

}  // namespace quen::workbench
