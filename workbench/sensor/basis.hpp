#pragma once

#include <Eigen/Core>
#include <string>
#include <vector>

#include "workbench/fits/input_file.hpp"

/// @file
/// Modal bases of the wavefront: 52 modes, each a sum of Zernike modes, and what Kolmogorov turbulence puts into each.

namespace quen::workbench {

inline constexpr int kFirstZernike = 2;  ///< piston moves no spot

struct Basis {
  std::string title;             ///< as the calibration's headers give it
  Eigen::MatrixXd coefficients;  ///< column m: the Zernike modes 2, 3, … of mode m. Columns are orthonormal.
  Eigen::VectorXd variances;     ///< of the 52 modes, in rad² for D/r0 = 1
};

/// Zernike modes 2 to 53.
Basis ZernikeBasis();

/// The Karhunen-Loève functions of Kolmogorov turbulence on the unobscured disc, largest variance first: eigenvectors
/// of the covariance of Zernike modes 2 to 231 (radial orders to 20), each with its largest coefficient positive; of
/// those of equal variance that of the least azimuthal order is first, cosines before sines. After J. Y. Wang and J. K.
/// Markey, "Modal compensation of atmospheric turbulence phase distortion", J. Opt. Soc. Am. 68, 78 (1978).
Basis KarhunenLoeveBasis();

/// Words for the bases, as arguments give them.
inline constexpr const char* kZernikeWord = "zernike";
inline constexpr const char* kKarhunenLoeveWord = "karhunen-loeve";
Basis BasisByWord(const std::string& word);

/// The basis of a calibration, after the keyword BASIS in the file of its modes-to-slopes matrix; where the
/// keyword is missing, or names another basis, Zernike modes are assumed.
Basis BasisOfCalibration(const InputFile& m2s);

}  // namespace quen::workbench
