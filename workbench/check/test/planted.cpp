#include "workbench/check/test/planted.hpp"

#include <fmt/format.h>

#include <Eigen/Dense>
#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <numbers>
#include <numeric>
#include <random>
#include <tuple>

#include "workbench/sensor/dimensions.hpp"

namespace quen::workbench::planted {
namespace {

using Eigen::Index;
using Eigen::Vector2d;

constexpr Index kCells = kAcross * kAcross;
constexpr Index kModes = 52;
constexpr double kDegree = std::numbers::pi / 180.0;

// --- Pupil

/// Half its width, which lights a few more than 607 whole sub-apertures.
double Radius(const Pupil& pupil) {
  constexpr double kArea = 611.0;
  const double ring = std::numbers::pi * (1.0 - pupil.obscuration * pupil.obscuration);
  const double vanes = 4.0 * pupil.spider_width * (1.0 - pupil.obscuration);
  return (vanes + std::sqrt(vanes * vanes + 4.0 * ring * kArea)) / (2.0 * ring);
}

bool IsLit(const Pupil& pupil, double radius, const Vector2d& point) {
  const Vector2d from_centre = point - Vector2d(pupil.x, pupil.y);
  const double r = from_centre.norm();
  if (r > radius || r < pupil.obscuration * radius) return false;
  const Vector2d vane(std::cos(pupil.spider_angle * kDegree), std::sin(pupil.spider_angle * kDegree));
  const double along = from_centre.dot(vane);
  const double across = from_centre.y() * vane.x() - from_centre.x() * vane.y();
  return std::min(std::abs(along), std::abs(across)) >= 0.5 * pupil.spider_width;
}

Eigen::Matrix2d Turn(double degrees) { return Eigen::Rotation2Dd(degrees * kDegree).toRotationMatrix(); }

/// Centre of a sub-aperture before the array is turned.
Vector2d CellCentre(Index i) {
  const Index row = i / kAcross;
  return {static_cast<double>(i % kAcross) - 16.0, static_cast<double>(row) - 16.0};
}

double LitShare(const Recipe& recipe, double radius, Index i) {
  constexpr int kPoints = 16;  // along each side
  const Eigen::Matrix2d turn = Turn(recipe.lenslets.turn);
  int lit = 0;
  for (int b = 0; b < kPoints; ++b) {
    for (int a = 0; a < kPoints; ++a) {
      const Vector2d inside((a + 0.5) / kPoints - 0.5, (b + 0.5) / kPoints - 0.5);
      if (IsLit(recipe.pupil, radius, turn * (CellCentre(i) + inside))) ++lit;
    }
  }
  return lit / static_cast<double>(kPoints * kPoints);
}

std::vector<std::uint8_t> BestLit(const Recipe& recipe) {
  const double radius = Radius(recipe.pupil);
  std::vector<std::pair<double, Index>> by_light;  // most first, of equal ones the first in the list
  for (Index i = 0; i < kCells; ++i) by_light.emplace_back(-LitShare(recipe, radius, i), i);
  std::ranges::sort(by_light);
  std::vector<std::uint8_t> used(kCells, 0);
  for (std::size_t k = 0; k < static_cast<std::size_t>(kUsed); ++k) {
    used[static_cast<std::size_t>(by_light[k].second)] = 1;
  }
  return used;
}

// --- Regions

std::vector<Roi> Regions(const Lenslets& lenslets, std::mt19937& random) {
  std::normal_distribution<double> scatter(0.0, 1.0);
  const Vector2d middle(419.5 + lenslets.shift, 407.5 + lenslets.shift);
  const Eigen::Matrix2d turn = Turn(lenslets.turn);
  std::vector<Roi> rois;
  rois.reserve(kCells);
  for (Index i = 0; i < kCells; ++i) {
    const Vector2d nominal = middle + lenslets.pitch * (turn * CellCentre(i));
    const Vector2d low = nominal.array() - (lenslets.size - 1) / 2.0;
    const auto x_low = static_cast<std::uint16_t>(std::lround(low.x()));
    const auto y_low = static_cast<std::uint16_t>(std::lround(low.y()));
    const double x_ref = nominal.x() + lenslets.offset_x + lenslets.scatter * scatter(random);
    const double y_ref = nominal.y() + lenslets.offset_y + lenslets.scatter * scatter(random);
    rois.emplace_back(x_low, static_cast<std::uint16_t>(x_low + lenslets.size), y_low,
                      static_cast<std::uint16_t>(y_low + lenslets.size), 840, 816, x_ref, y_ref);
  }
  return rois;
}

// --- Modes: their phases at a point, which is given in units of the pupil's radius

using Phases = Eigen::Array<double, kModes, 1>;

/// The 52 places nearest to the middle, in the order of their rows; of equally near ones the lower and more left.
std::vector<Vector2d> Nearest(std::vector<Vector2d> places) {
  std::ranges::sort(places, {}, [](const Vector2d& place) {
    return std::tuple(std::round(1e6 * place.squaredNorm()), place.y(), place.x());
  });
  places.resize(kModes);
  std::ranges::sort(places, {}, [](const Vector2d& place) { return std::tuple(place.y(), place.x()); });
  return places;
}

class Mirror {
 public:
  /// @param coupling  of an actuator's bump to its neighbour
  /// @param power     of the distance: 2 makes Gaussians
  Mirror(std::vector<Vector2d> actuators, double spacing, double coupling, double power)
      : actuators_(std::move(actuators)), spacing_(spacing), decay_(std::log(coupling)), power_(power) {}

  Phases operator()(const Vector2d& point) const {
    Phases phases;
    for (Index mode = 0; mode < kModes; ++mode) {
      const double r2 = (point - actuators_[static_cast<std::size_t>(mode)]).squaredNorm() / (spacing_ * spacing_);
      phases(mode) = std::exp(decay_ * (power_ == 2.0 ? r2 : std::pow(r2, 0.5 * power_)));
    }
    return phases;
  }

 private:
  std::vector<Vector2d> actuators_;
  double spacing_;
  double decay_;
  double power_;
};

/// Eight rows of eight without the corners.
Mirror SquareMirror(unsigned seed) {
  const double spacing = 2.15 / 8.0;
  std::vector<Vector2d> places;
  for (int row = 0; row < 8; ++row) {
    for (int column = 0; column < 8; ++column) places.emplace_back((column - 3.5) * spacing, (row - 3.5) * spacing);
  }
  return {Nearest(places), spacing, 0.2 + 0.03 * (seed % 6), 2.0};
}

Mirror HexagonalMirror(unsigned seed) {
  const double spacing = 2.25 / 8.0;
  const Eigen::Matrix2d turn = Turn(7.0 * (seed % 8));
  std::vector<Vector2d> places;
  for (int row = -6; row <= 6; ++row) {
    for (int column = -8; column <= 8; ++column) {
      const Vector2d place((column + 0.5 * (row & 1)) * spacing, row * spacing * std::sqrt(0.75));
      places.emplace_back(turn * place + Vector2d(0.02, 0.01));
    }
  }
  return {Nearest(places), spacing, 0.25 + 0.02 * (seed % 6), 1.8};
}

/// Of a square that the pupil just fits into.
class Fourier {
 public:
  Fourier() {
    std::vector<std::tuple<int, int, int>> all;  // lowest frequencies first
    for (int x = -6; x <= 6; ++x) {
      for (int y = 0; y <= 6; ++y) {
        if (y > 0 || x > 0) all.emplace_back(x * x + y * y, y, x);
      }
    }
    std::ranges::sort(all);
    for (std::size_t k = 0; k < waves_.size(); ++k) {
      waves_[k] = std::numbers::pi * Vector2d(std::get<2>(all[k]), std::get<1>(all[k]));
    }
  }

  Phases operator()(const Vector2d& point) const {
    Phases phases;
    for (Index k = 0; k < kModes / 2; ++k) {
      const double angle = waves_[static_cast<std::size_t>(k)].dot(point);
      phases(2 * k) = std::cos(angle);
      phases(2 * k + 1) = std::sin(angle);
    }
    return phases;
  }

 private:
  std::array<Vector2d, kModes / 2> waves_;
};

/// By the sums of powers that define them, in the order of R. J. Noll, J. Opt. Soc. Am. 66, 207 (1976).
class Zernike {
 public:
  Zernike() {
    int j = 1;
    for (int n = 0; j <= kModes + 1; ++n) {
      for (int m = n % 2; m <= n; m += 2) {
        for (int twin = 0; twin < (m == 0 ? 1 : 2); ++twin, ++j) {
          if (j >= 2 && j <= kModes + 1) modes_[static_cast<std::size_t>(j - 2)] = Make(n, m, m == 0 || j % 2 == 0);
        }
      }
    }
  }

  Phases operator()(const Vector2d& point) const {
    const double r = point.norm();
    const double angle = std::atan2(point.y(), point.x());
    Phases phases;
    for (Index k = 0; k < kModes; ++k) {
      const Mode& mode = modes_[static_cast<std::size_t>(k)];
      double radial = 0.0;
      for (const double coefficient : mode.coefficients) radial = radial * r + coefficient;
      phases(k) = radial * (mode.is_cosine ? std::cos(mode.m * angle) : std::sin(mode.m * angle));
    }
    return phases;
  }

 private:
  struct Mode {
    int m = 0;
    bool is_cosine = true;
    std::vector<double> coefficients;  // of the radius, highest power first
  };

  static Mode Make(int n, int m, bool is_cosine) {
    const auto factorial = [](int k) { return std::tgamma(k + 1.0); };
    Mode mode = {m, is_cosine, std::vector<double>(static_cast<std::size_t>(n) + 1, 0.0)};
    const double norm = std::sqrt((m == 0 ? 1.0 : 2.0) * (n + 1.0));
    for (int s = 0; s <= (n - m) / 2; ++s) {
      mode.coefficients[2 * static_cast<std::size_t>(s)] =
          norm * (s % 2 == 0 ? 1.0 : -1.0) * factorial(n - s) /
          (factorial(s) * factorial((n + m) / 2 - s) * factorial((n - m) / 2 - s));
    }
    return mode;
  }

  std::array<Mode, kModes> modes_;
};

// --- Slopes

/// Mean of the phases along a side of a sub-aperture, by Gauss's rule of three points.
template <typename Function>
Phases Along(const Function& modes, const Vector2d& from, const Vector2d& to) {
  const Vector2d middle = 0.5 * (from + to);
  const Vector2d away = std::sqrt(0.15) * (to - from);
  return (5.0 * modes(middle - away) + 8.0 * modes(middle) + 5.0 * modes(middle + away)) / 18.0;
}

/// Mean gradients, in pixels for modes of unit amplitude: the difference of opposite sides.
template <typename Function>
Matrix Slopes(const Recipe& recipe, const std::vector<std::uint8_t>& used, const Function& modes) {
  constexpr double kPixels = 8.0;  // for a phase that rises by one across the pupil's radius
  const double radius = Radius(recipe.pupil);
  const Vector2d centre(recipe.pupil.x, recipe.pupil.y);
  const Eigen::Matrix2d turn = Turn(recipe.lenslets.turn);
  Matrix m2s(2 * kUsed, kModes);
  Index k = 0;
  for (Index i = 0; i < kCells; ++i) {
    if (used[static_cast<std::size_t>(i)] == 0) continue;
    const auto corner = [&](double x, double y) -> Vector2d {
      return (turn * (CellCentre(i) + Vector2d(x, y)) - centre) / radius;
    };
    const Vector2d low_left = corner(-0.5, -0.5);
    const Vector2d low_right = corner(0.5, -0.5);
    const Vector2d high_left = corner(-0.5, 0.5);
    const Vector2d high_right = corner(0.5, 0.5);
    const Phases across = kPixels * radius * (Along(modes, low_right, high_right) - Along(modes, low_left, high_left));
    const Phases up = kPixels * radius * (Along(modes, high_left, high_right) - Along(modes, low_left, low_right));
    m2s.row(k) = turn(1, 0) * across + turn(1, 1) * up;
    m2s.row(kUsed + k) = turn(0, 0) * across + turn(0, 1) * up;
    ++k;
  }
  return m2s;
}

Matrix Slopes(const Recipe& recipe, const std::vector<std::uint8_t>& used) {
  switch (recipe.modes) {
    case Modes::kSquareMirror:
      return Slopes(recipe, used, SquareMirror(recipe.seed));
    case Modes::kHexagonalMirror:
      return Slopes(recipe, used, HexagonalMirror(recipe.seed));
    case Modes::kFourier:
      return Slopes(recipe, used, Fourier());
    case Modes::kZernike:
      break;
  }
  return Slopes(recipe, used, Zernike());
}

/// As poking one mode after another measures it, each as far as its slopes allow.
Matrix WithNoise(Matrix m2s, double noise, std::mt19937& random) {
  std::normal_distribution<double> normal(0.0, 1.0);
  for (Index mode = 0; mode < m2s.cols(); ++mode) {
    const double rms = m2s.col(mode).norm() / std::sqrt(static_cast<double>(m2s.rows()));
    for (Index slope = 0; slope < m2s.rows(); ++slope) m2s(slope, mode) += noise * rms * normal(random);
  }
  return m2s;
}

CalibrationContent Make(const Recipe& recipe) {
  std::mt19937 random(recipe.seed);
  CalibrationContent content;
  content.rois = Regions(recipe.lenslets, random);
  content.used = BestLit(recipe);
  const Matrix noiseless = Slopes(recipe, content.used);
  content.m2s = recipe.noise > 0.0 ? WithNoise(noiseless, recipe.noise, random) : noiseless;
  content.cm = PseudoInverse(recipe.has_cm_of_noiseless ? noiseless : content.m2s);
  return content;
}

// --- Linear algebra

/// (MᵀM + Λ)⁻¹ Mᵀ.
Matrix Regularised(const Matrix& m2s, const Eigen::VectorXd& diagonal) {
  Eigen::MatrixXd gram = m2s.transpose() * m2s;
  gram.diagonal() += diagonal;
  return gram.ldlt().solve(Eigen::MatrixXd(m2s.transpose()));
}

/// Without the directions that M2S sees least.
Matrix Truncated(const Matrix& m2s, Index dropped) {
  const Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> solver(Eigen::MatrixXd(m2s.transpose() * m2s));
  Eigen::VectorXd inverse = solver.eigenvalues().cwiseInverse();
  inverse.head(dropped).setZero();
  return solver.eigenvectors() * inverse.asDiagonal() * solver.eigenvectors().transpose() * m2s.transpose();
}

/// A fit of some of the modes; zeros for the others.
Matrix FitOf(const Matrix& m2s, Index first, Index count) {
  Matrix cm = Matrix::Zero(m2s.cols(), m2s.rows());
  cm.middleRows(first, count) = PseudoInverse(m2s.middleCols(first, count));
  return cm;
}

Matrix WithoutRows(Matrix cm, const std::vector<Index>& rows) {
  for (const Index row : rows) cm.row(row).setZero();
  return cm;
}

Eigen::VectorXd Uniform(Index size, double low, double high, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> uniform(low, high);
  return Eigen::VectorXd::NullaryExpr(size, [&] { return uniform(random); });
}

double MeanSquare(const Matrix& m2s) { return m2s.squaredNorm() / static_cast<double>(m2s.cols()); }

/// Slopes of a tilt along y and along x.
Matrix Tilts() {
  Matrix tilts = Matrix::Zero(2 * kUsed, 2);
  tilts.col(0).head(kUsed).setOnes();
  tilts.col(1).tail(kUsed).setOnes();
  return tilts / std::sqrt(static_cast<double>(kUsed));
}

}  // namespace

Matrix PseudoInverse(const Matrix& m2s) { return Regularised(m2s, Eigen::VectorXd::Zero(m2s.cols())); }

std::string Name(const Recipe& recipe) {
  constexpr std::array<const char*, 4> kNames = {"square mirror", "hexagonal mirror", "Fourier", "Zernike"};
  return fmt::format("{}, {} pupil, {} lenslets, noise {}{}, seed {}", kNames[static_cast<std::size_t>(recipe.modes)],
                     recipe.pupil.name, recipe.lenslets.name, recipe.noise,
                     recipe.has_cm_of_noiseless ? " in M2S alone" : "", recipe.seed);
}

const CalibrationContent& Made(const Recipe& recipe) {
  static std::map<std::string, CalibrationContent> made;
  const std::string name = Name(recipe);
  const auto known = made.find(name);
  return known != made.end() ? known->second : made.emplace(name, Make(recipe)).first->second;
}

std::vector<Pupil> Pupils() {
  return {{.name = "annular"},
          {.name = "round", .obscuration = 0.0},
          {.name = "slightly obscured", .obscuration = 0.14},
          {.name = "much obscured", .obscuration = 0.35},
          {.name = "spider", .obscuration = 0.2, .spider_width = 0.9, .spider_angle = 20.0},
          {.name = "straight spider", .obscuration = 0.28, .spider_width = 0.6, .spider_angle = 0.0},
          {.name = "off-centre", .obscuration = 0.28, .x = 0.37, .y = -0.21},
          {.name = "off-centre spider",
           .obscuration = 0.14,
           .spider_width = 0.7,
           .spider_angle = 33.0,
           .x = -0.5,
           .y = 0.25}};
}

std::vector<Lenslets> LensletArrays() {
  return {{.name = "plain"},
          {.name = "scattered", .scatter = 0.3},
          {.name = "scattered, offset", .scatter = 0.3, .offset_x = 0.2, .offset_y = -0.15},
          {.name = "slightly scattered", .scatter = 0.1, .offset_x = -0.2, .offset_y = 0.1},
          {.name = "fine", .pitch = 23.7, .size = 22},
          {.name = "tight", .pitch = 23.5, .size = 23, .scatter = 0.05},
          {.name = "odd", .size = 23},
          {.name = "small", .size = 20, .scatter = 0.2, .shift = 0.2},
          {.name = "turned by 1", .pitch = 23.8, .size = 22, .turn = 1.0, .scatter = 0.1},
          {.name = "turned by -3", .pitch = 23.5, .size = 21, .turn = -3.0, .scatter = 0.15, .offset_x = 0.1},
          {.name = "turned by 3", .pitch = 23.5, .size = 20, .turn = 3.0}};
}

std::vector<Choice> Choices() {
  using Content = CalibrationContent;
  const auto kernel = [](const Content& content, double share) {
    return Regularised(content.m2s, Eigen::VectorXd::Constant(kModes, share * MeanSquare(content.m2s)));
  };
  const auto weighted = [](const Content& content, double least, unsigned seed) -> Matrix {
    const Eigen::VectorXd roots = Uniform(2 * kUsed, least, 1.0, seed).cwiseSqrt();
    return PseudoInverse(roots.asDiagonal() * content.m2s) * roots.asDiagonal();
  };
  return {
      {"last four not controlled",
       [](const Content& c) {
         return WithoutRows(c.cm, {48, 49, 50, 51});
       }},
      {"three not controlled",
       [](const Content& c) {
         return WithoutRows(c.cm, {7, 20, 33});
       }},
      {"first two left out",
       [](const Content& c) {
         return WithoutRows(c.cm, {0, 1});
       }},
      {"fit of all but the first two", [](const Content& c) { return FitOf(c.m2s, 2, kModes - 2); }},
      {"tilt taken out of the slopes",
       [](const Content& c) -> Matrix { return c.cm - c.cm * Tilts() * Tilts().transpose(); }},
      {"mean of the commands taken out",
       [](const Content& c) -> Matrix { return c.cm.rowwise() - c.cm.colwise().mean(); }},
      {"fit of the first 45", [](const Content& c) { return FitOf(c.m2s, 0, 45); }},
      {"fit of the first 30", [](const Content& c) { return FitOf(c.m2s, 0, 30); }},
      {"fit of the first 12", [](const Content& c) { return FitOf(c.m2s, 0, 12); }},
      {"without the 3 weakest", [](const Content& c) { return Truncated(c.m2s, 3); }},
      {"without the 12 weakest", [](const Content& c) { return Truncated(c.m2s, 12); }},
      {"slightly regularised", [=](const Content& c) { return kernel(c, 0.01); }},
      {"regularised", [=](const Content& c) { return kernel(c, 0.1); }},
      {"much regularised", [=](const Content& c) { return kernel(c, 0.5); }},
      {"regularised by rising weights",
       [](const Content& c) {
         return Regularised(c.m2s, MeanSquare(c.m2s) * Eigen::VectorXd::LinSpaced(kModes, 0.0, 0.3));
       }},
      {"gains at random", [](const Content& c) -> Matrix { return Uniform(kModes, 0.3, 1.0, 5).asDiagonal() * c.cm; }},
      {"falling gains",
       [](const Content& c) -> Matrix { return Eigen::VectorXd::LinSpaced(kModes, 1.0, 0.3).asDiagonal() * c.cm; }},
      {"gain one half", [](const Content& c) -> Matrix { return 0.5 * c.cm; }},
      {"weighted", [=](const Content& c) { return weighted(c, 0.3, 6); }},
      {"weighted by light", [=](const Content& c) { return weighted(c, 0.7, 7); }},
      {"of an earlier measurement",
       [](const Content& c) {
         std::mt19937 random(8);
         return PseudoInverse(WithNoise(c.m2s, 0.05, random));
       }},
      {"of an earlier, poor measurement", [](const Content& c) {
         std::mt19937 random(9);
         return PseudoInverse(WithNoise(c.m2s, 0.2, random));
       }}};
}

namespace {

/// All lists of a calibration in another order.
void Reorder(CalibrationContent& content, const std::vector<Index>& order) {
  const CalibrationContent old = content;
  std::vector<Index> number(kCells, -1);  // among the used ones
  Index count = 0;
  for (std::size_t i = 0; i < old.used.size(); ++i) {
    if (old.used[i] != 0) number[i] = count++;
  }
  Index k = 0;
  for (std::size_t i = 0; i < order.size(); ++i) {
    const auto from = static_cast<std::size_t>(order[i]);
    content.rois[i] = old.rois[from];
    content.used[i] = old.used[from];
    if (old.used[from] == 0) continue;
    for (const Index block : {Index{0}, kUsed}) {
      content.m2s.row(block + k) = old.m2s.row(block + number[from]);
      content.cm.col(block + k) = old.cm.col(block + number[from]);
    }
    ++k;
  }
}

std::vector<Index> Order(const std::function<Index(Index row, Index column)>& key) {
  std::vector<Index> order(kCells);
  std::iota(order.begin(), order.end(), Index{0});
  std::ranges::sort(order, {}, [&](Index i) { return key(i / kAcross, i % kAcross); });
  return order;
}

void InUnits(CalibrationContent& content, double factor) {
  content.m2s *= factor;
  content.cm /= factor;
}

}  // namespace

std::vector<Variation> Variations() {
  return {{"unchanged", [](CalibrationContent&) {}},
          {"small units", [](CalibrationContent& c) { InUnits(c, 1e-6); }},
          {"large units", [](CalibrationContent& c) { InUnits(c, 2e4); }},
          {"listed by columns",
           [](CalibrationContent& c) {
             Reorder(c, Order([](Index row, Index column) { return kAcross * column + row; }));
           }},
          {"listed from the last row",
           [](CalibrationContent& c) {
             Reorder(c, Order([](Index row, Index column) { return column - kAcross * row; }));
           }},
          {"negative modes",
           [](CalibrationContent& c) {
             c.m2s.leftCols(9) *= -1.0;
             c.cm.topRows(9) *= -1.0;
           }},
          {"a mode of fine waves", [](CalibrationContent& c) {
             constexpr double kWave = 96.0;  // pixels: four sub-apertures
             const double rms = std::sqrt(MeanSquare(c.m2s));
             Index k = 0;
             for (std::size_t i = 0; i < c.used.size(); ++i) {
               if (c.used[i] == 0) continue;
               c.m2s(k, 51) = 0.0;
               c.m2s(kUsed + k++, 51) = rms * std::cos(2.0 * std::numbers::pi * c.rois[i].x_ref / kWave);
             }
             c.cm = PseudoInverse(c.m2s);
           }}};
}

// --- Comparing

namespace {

bool AreClose(const Matrix& one, const Matrix& other, double tolerance) {
  if (one.rows() != other.rows() || one.cols() != other.cols()) return false;
  const double largest = other.cwiseAbs().maxCoeff();
  return ((one - other).array().abs() <= tolerance * largest).all();  // false for what is no number
}

bool AreAll(const std::vector<Roi>& one, const std::vector<Roi>& other, bool (*are_same)(const Roi&, const Roi&)) {
  return std::ranges::equal(one, other, are_same);
}

bool HaveSameBounds(const Roi& one, const Roi& other) {
  return one.x_low == other.x_low && one.x_up == other.x_up && one.y_low == other.y_low && one.y_up == other.y_up &&
         one.width == other.width && one.height == other.height && one.n_pixels == other.n_pixels;
}

bool HaveSameX(const Roi& one, const Roi& other) { return std::abs(one.x_ref - other.x_ref) <= kRounded; }
bool HaveSameY(const Roi& one, const Roi& other) { return std::abs(one.y_ref - other.y_ref) <= kRounded; }

/// A calibration in the order of another one's list, where it has the same regions.
CalibrationContent InOrderOf(const CalibrationContent& content, const CalibrationContent& other) {
  std::map<std::pair<int, int>, Index> places;
  for (std::size_t i = 0; i < content.rois.size(); ++i) {
    places.emplace(std::pair(content.rois[i].x_low, content.rois[i].y_low), static_cast<Index>(i));
  }
  std::vector<Index> order;
  for (const Roi& roi : other.rois) {
    const auto place = places.find({roi.x_low, roi.y_low});
    if (place == places.end()) return content;
    order.push_back(place->second);
  }
  const auto count = std::ranges::count_if(content.used, [](std::uint8_t flag) { return flag != 0; });
  const bool is_whole = places.size() == kCells && order.size() == kCells && content.used.size() == kCells &&
                        count == kUsed && content.m2s.rows() == 2 * kUsed && content.cm.cols() == 2 * kUsed;
  if (!is_whole) return content;
  CalibrationContent ordered = content;
  Reorder(ordered, order);
  return ordered;
}

}  // namespace

int SameParts(const CalibrationContent& one, const CalibrationContent& other, double tolerance) {
  const std::array<bool, kParts> same = {
      AreClose(one.m2s, other.m2s, tolerance),      AreClose(one.cm, other.cm, tolerance),
      AreAll(one.rois, other.rois, HaveSameBounds), AreAll(one.rois, other.rois, HaveSameX),
      AreAll(one.rois, other.rois, HaveSameY),      one.used == other.used};
  return static_cast<int>(std::ranges::count(same, true));
}

bool AreSame(const CalibrationContent& one, const CalibrationContent& other, double tolerance) {
  if (AreAll(one.rois, other.rois, HaveSameBounds)) return SameParts(one, other, tolerance) == kParts;
  return SameParts(InOrderOf(one, other), other, tolerance) == kParts;
}

bool AreSameButForSign(const CalibrationContent& one, const CalibrationContent& other, double tolerance) {
  CalibrationContent negative = one;
  negative.m2s *= -1.0;
  negative.cm *= -1.0;
  return AreSame(one, other, tolerance) || AreSame(negative, other, tolerance);
}

}  // namespace quen::workbench::planted
