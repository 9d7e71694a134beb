#include "workbench/sensor/calibration.hpp"

#include <filesystem>
#include <numbers>
#include <stdexcept>

#include "common/fits/fits.hpp"
#include "shssim/shs_simulator.hpp"
#include "shssim/spot.hpp"
#include "workbench/fits/header.hpp"
#include "workbench/fits/memory_fits.hpp"
#include "workbench/fits/staged_file.hpp"
#include "workbench/sensor/dimensions.hpp"
#include "workbench/sensor/displacements.hpp"
#include "workbench/sensor/matrix_file.hpp"
#include "workbench/sensor/sensor_tables.hpp"
#include "workbench/sensor/zernike.hpp"

namespace quen::workbench {
namespace {

using quen::common::Fits::Handle;

constexpr const char* kCommand = "calibrate";

void WriteGeometry(const Handle& file, const Geometry& geometry) {
  WriteKey(file, "PITCH", geometry.pitch, "[pix] from one sub-aperture to the next");
  WriteKey(file, "REGION", static_cast<long>(geometry.size), "[pix] width and height of a region");
  WriteKey(file, "OFFSETX", geometry.offset_x, "[pix] of the grid from the frame's middle");
  WriteKey(file, "OFFSETY", geometry.offset_y, "[pix] of the grid from the frame's middle");
  WriteKey(file, "PUPDIAM", 2.0 * kPupilRadius * geometry.pitch, "[pix] outer diameter of the pupil");
  WriteKey(file, "OBSCUR", geometry.obscuration, "inner over outer diameter of the pupil");
  if (!geometry.spider_angle) return;
  WriteKey(file, "SPIDANG", *geometry.spider_angle, "[deg] of a vane, from x toward y");
  WriteKey(file, "SPIDWID", geometry.spider_width, "width of a vane over the pupil's diameter");
}

/// A file of a matrix, its columns along NAXIS1.
std::string MatrixFile(const Calibration& calibration, const Matrix& matrix, const std::string& unit,
                       const std::string& title) {
  MemoryFits fits;
  const Handle& file = fits.Image();
  WriteMatrix(file, matrix);
  WriteKey(file, "BUNIT", unit, "unit of the elements");
  WriteKey(file, "CONTENT", title, "what this is");
  WriteKey(file, "BASIS", calibration.basis, "modes, in this order");
  WriteKey(file, "METHOD", calibration.origin, "of the modes-to-slopes matrix");
  WriteExposureOfDetector(file, calibration.exposure);
  WriteKey(file, "PIXPRAD", PixelsPerRadian(), "[pix/rad] shift per phase across a sub-aperture");
  WriteGeometry(file, calibration.geometry);
  WriteCreator(file, kCommand);
  return fits.Bytes();
}

std::string RoisFile(const Calibration& calibration) {
  std::vector<RegionRow> rows;
  rows.reserve(kNumRois);
  const int size = calibration.geometry.size;
  for (std::size_t i = 0; i < kNumRois; ++i) {
    const Cell cell = CellAt(calibration.geometry, i);
    rows.push_back({static_cast<std::uint16_t>(cell.first_column), static_cast<std::uint16_t>(cell.first_column + size),
                    cell.x_ref, static_cast<std::uint16_t>(cell.first_row),
                    static_cast<std::uint16_t>(cell.first_row + size), cell.y_ref});
  }
  MemoryFits fits;
  const Handle& regions = AppendRegions(fits, std::move(rows), true);
  WriteGeometry(regions, calibration.geometry);
  WriteCreator(regions, kCommand);
  WriteCreator(AppendFlags(fits, kFlagTable, calibration.used), kCommand);
  return fits.Bytes();
}

}  // namespace

double PixelsPerRadian() { return quen::shssim::kSpotFwhm / (2.0 * std::numbers::pi); }

Matrix ModesToSlopes(const std::vector<std::uint8_t>& used, const Basis& basis) {
  const double scale = kCellSize * PixelsPerRadian();
  const std::vector<std::size_t> indices = UsedIndices(used);
  Matrix zernikes_to_slopes(kNumSlopes, basis.coefficients.rows());
  for (Eigen::Index column = 0; column < zernikes_to_slopes.cols(); ++column) {
    const Zernike zernike(kFirstZernike + static_cast<int>(column));
    for (std::size_t k = 0; k < indices.size(); ++k) {
      const Gradient mean = zernike.MeanGradient(PupilX(indices[k]), PupilY(indices[k]), kCellSize);
      zernikes_to_slopes(static_cast<Eigen::Index>(k), column) = scale * mean.y;
      zernikes_to_slopes(static_cast<Eigen::Index>(kNumRoisUsed + k), column) = scale * mean.x;
    }
  }
  return zernikes_to_slopes * basis.coefficients;
}

Calibration MakeCalibration(const Geometry& geometry, const Basis& basis) {
  CheckFits(geometry);
  Calibration calibration;
  calibration.geometry = geometry;
  calibration.basis = basis.title;
  calibration.used = UsedFlags(geometry);
  return WithMatrix(calibration, ModesToSlopes(calibration.used, basis), "mean gradients");
}

Calibration WithMatrix(Calibration calibration, const Matrix& m2s, const std::string& origin,
                       const Exposure& exposure) {
  calibration.m2s = m2s;
  calibration.cm = PseudoInverse(m2s);
  calibration.origin = origin;
  calibration.exposure = exposure;
  return calibration;
}

void RefuseToReplace(const std::string& folder, bool force) {
  if (!force) RequireNew(CalibrationNames(folder), "give --force to replace the calibration");
}

std::vector<std::string> CalibrationNames(const std::string& folder) {
  std::vector<std::string> names;
  names.reserve(kCalibrationFiles.size());
  for (const char* const name : kCalibrationFiles) names.push_back((std::filesystem::path(folder) / name).string());
  return names;
}

std::vector<std::string> CalibrationBytes(const Calibration& calibration) {
  return {MatrixFile(calibration, calibration.m2s, "pix/rad", "modes-to-slopes matrix"),
          MatrixFile(calibration, calibration.cm, "rad/pix", "control matrix"), RoisFile(calibration)};
}

std::vector<std::string> WriteCalibration(const std::string& folder, bool force, const Calibration& calibration) {
  RefuseToReplace(folder, force);
  StagedFiles files(CalibrationNames(folder));
  files.GiveAll(CalibrationBytes(calibration));
  files.Commit();
  return files.Names();
}

}  // namespace quen::workbench
