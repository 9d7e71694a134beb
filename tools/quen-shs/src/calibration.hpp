#pragma once

#include <Eigen/Dense>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

/// @file
/// The synthetic calibration: geometry, usage flags, modes-to-slopes matrix and control matrix, and its files.

namespace quen_shs {

/// Row by row, as the files hold it.
using Matrix = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

/// The files of a calibration below its folder.
inline constexpr std::array<const char*, 3> kCalibrationFiles = {"data/M2S.fits", "data/CM.fits", "data/shs_rois.fits"};

/// Spot displacement, in pixels, for a phase that rises by one radian across a sub-aperture. The spot that the
/// simulator draws (standard deviation 2 pixels) is taken for a diffraction-limited one, whose full width at half
/// maximum is the shift that one wave of tilt across the sub-aperture makes.
double PixelsPerRadian();

/// Modes-to-slopes matrix, 1214 × 52: mean gradient of Zernike modes 2 to 53 over each used sub-aperture, in pixels per
/// radian; row k holds the y displacement of the k-th used sub-aperture, row 607 + k its x displacement.
Matrix ModesToSlopes(const std::vector<std::uint8_t>& used);

/// Writes the calibration's files below `folder`, all of them or none.
/// @return  their paths
/// @throws std::runtime_error  a file exists and `force` is false, or cannot be written
std::vector<std::string> WriteCalibration(const std::string& folder, bool force);

}  // namespace quen_shs
