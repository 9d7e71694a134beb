#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "workbench/sensor/basis.hpp"
#include "workbench/sensor/camera.hpp"
#include "workbench/sensor/geometry.hpp"
#include "workbench/sensor/matrices.hpp"

/// @file
/// The synthetic calibration: geometry, usage flags, modes-to-slopes matrix and control matrix, and its files.

namespace quen::workbench {

/// The files of a calibration below its folder.
inline constexpr std::array<const char*, 3> kCalibrationFiles = {"data/M2S.fits", "data/CM.fits", "data/shs_rois.fits"};

/// Spot displacement, in pixels, for a phase that rises by one radian across a sub-aperture. The spot that the
/// simulator draws (standard deviation 2 pixels) is taken for a diffraction-limited one, whose full width at half
/// maximum is the shift that one wave of tilt across the sub-aperture makes.
double PixelsPerRadian();

/// What a calibration's files hold, and where that is from.
struct Calibration {
  Geometry geometry;
  std::string basis;               ///< the modes, in words
  std::string origin;              ///< of the modes-to-slopes matrix, in words
  Exposure exposure;               ///< of the frames that it was measured with, if it was; a detector is in its header
  std::vector<std::uint8_t> used;  ///< usage flags
  Matrix m2s;                      ///< 1214 × 52, pixels per radian
  Matrix cm;                       ///< 52 × 1214, radians per pixel: the pseudo-inverse
};

/// Modes-to-slopes matrix: mean gradient of each mode over each used sub-aperture, in pixels per radian; row k holds
/// the y displacement of the k-th used sub-aperture, row 607 + k its x displacement.
Matrix ModesToSlopes(const std::vector<std::uint8_t>& used, const Basis& basis);

/// The calibration that follows from a geometry and a basis.
/// @throws std::invalid_argument  the geometry is not one of a sensor: off the frame, or too little light
Calibration MakeCalibration(const Geometry& geometry = {}, const Basis& basis = ZernikeBasis());

/// The same with another modes-to-slopes matrix.
Calibration WithMatrix(Calibration calibration, const Matrix& m2s, const std::string& origin,
                       const Exposure& exposure = {});

/// @throws std::runtime_error  a file of a calibration is there already, and `force` is false
void RefuseToReplace(const std::string& folder, bool force);

/// The names of a calibration's files in a folder, and the bytes of these files, in the order of kCalibrationFiles.
std::vector<std::string> CalibrationNames(const std::string& folder);
std::vector<std::string> CalibrationBytes(const Calibration& calibration);

/// Writes the calibration's files below `folder`, all of them or none.
/// @return  their names
/// @throws std::runtime_error  a file exists and `force` is false, or a file cannot be written
std::vector<std::string> WriteCalibration(const std::string& folder, bool force,
                                          const Calibration& calibration = MakeCalibration());

}  // namespace quen::workbench
