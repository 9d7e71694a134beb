#pragma once

#include <Eigen/Core>
#include <functional>
#include <string>
#include <vector>

#include "workbench/check/calibration_content.hpp"

/// @file
/// Calibrations of sensors, mirrors and pupils of many kinds, and the mistakes that people make with them. None of the
/// workbench's own geometry, modes or slopes is used, so that both can be wrong only independently.
///
/// Lengths are in pitches of the lenslet array unless they are said to be in pixels. The same recipe and seed give the
/// same calibration.

namespace quen::workbench::planted {

inline constexpr Eigen::Index kAcross = 33;  ///< sub-apertures in a row, and in a column
inline constexpr Eigen::Index kUsed = 607;   ///< sub-apertures, and elements of either block of the slope vector

// --- Calibrations

enum class Modes {
  kSquareMirror,     ///< influence functions of 52 actuators on a square grid: Gaussians
  kHexagonalMirror,  ///< of 52 on a hexagonal one, with a more pointed peak
  kFourier,          ///< cosines and sines of rising frequency
  kZernike           ///< Noll 2 to 53
};

/// Always as wide as it takes to light 607 sub-apertures.
struct Pupil {
  std::string name = "annular";
  double obscuration = 0.28;   ///< inner over outer diameter
  double spider_width = 0.0;   ///< of each of four vanes
  double spider_angle = 20.0;  ///< degrees
  double x = 0.0;              ///< its centre, from that of the grid
  double y = 0.0;
};

struct Lenslets {
  std::string name = "plain";
  double pitch = 24.0;    ///< pixels
  int size = 24;          ///< of a region, pixels
  double turn = 0.0;      ///< of the array on the detector, degrees
  double scatter = 0.0;   ///< RMS of each coordinate of the references, pixels
  double offset_x = 0.0;  ///< of the references, pixels
  double offset_y = 0.0;
  double shift = 0.0;  ///< of the whole array from the middle of the frame, along both axes, pixels
};

struct Recipe {
  Modes modes = Modes::kSquareMirror;
  Pupil pupil = {};
  Lenslets lenslets = {};
  double noise = 0.0;                ///< of M2S, over the RMS of each mode's slopes
  bool has_cm_of_noiseless = false;  ///< instead of that of the noisy M2S
  unsigned seed = 1;
};

std::string Name(const Recipe& recipe);

/// Made once, and kept.
const CalibrationContent& Made(const Recipe& recipe);

/// The least squares inverse of a matrix of full rank.
Matrix PseudoInverse(const Matrix& m2s);

/// What there is to choose from.
std::vector<Pupil> Pupils();
std::vector<Lenslets> LensletArrays();

// --- Control matrices as people choose them

struct Choice {
  std::string name;
  std::function<Matrix(const CalibrationContent&)> Cm;
};

/// None of them is a mistake.
std::vector<Choice> Choices();

/// Good calibrations that differ in more than the control matrix: other units, other lists.
struct Variation {
  std::string name;
  std::function<void(CalibrationContent&)> apply;
};
std::vector<Variation> Variations();

// --- Mistakes

enum class Place { kM2s, kCm, kBoth, kRegions, kFlags };

struct Mistake {
  std::string word;    ///< as corrections call it; empty: nothing can correct it
  std::string detail;  ///< of which kind it is
  Place place = Place::kM2s;
  std::function<void(CalibrationContent&)> Plant;
  std::function<void(CalibrationContent&)> Undo = {};  ///< of what was just planted; none: it is lost
  /// Where nothing can correct it: findings with one of these keys name it, if their text holds one of the words.
  std::vector<std::string> keys = {};
  std::vector<std::string> words = {};
};

std::string Name(const Mistake& mistake);

/// Orders and signs of slopes, as they are mistaken in one matrix or both.
std::vector<Mistake> LayoutMistakes(Place place);

/// Lists that begin up to three places further on, or before, in one matrix or both.
std::vector<Mistake> BeginningMistakes();

/// Modes, scales and matrices that do not belong together; single modes and sub-apertures.
std::vector<Mistake> MatrixMistakes();

/// References, bounds and flags.
std::vector<Mistake> RegionMistakes();

std::vector<Mistake> AllMistakes();

// --- Comparing

/// Rounding, over each matrix's largest element; in pixels for the references.
inline constexpr double kRounded = 1e-9;

/// Whether two calibrations are the same to a tolerance. A calibration whose lists are in another order is the same if
/// its matrices are, too.
bool AreSame(const CalibrationContent& one, const CalibrationContent& other, double tolerance = kRounded);

/// The same but for the sign of all modes, which nothing tells.
bool AreSameButForSign(const CalibrationContent& one, const CalibrationContent& other, double tolerance = kRounded);

/// How many of M2S, CM, bounds, x references, y references and flags are the same.
inline constexpr int kParts = 6;
int SameParts(const CalibrationContent& one, const CalibrationContent& other, double tolerance = kRounded);

}  // namespace quen::workbench::planted
