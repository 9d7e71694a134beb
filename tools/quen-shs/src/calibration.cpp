#include "tools/quen-shs/src/calibration.hpp"

#include <cmath>
#include <filesystem>
#include <numbers>
#include <stdexcept>

#include "common/fits/fits.hpp"
#include "shssim/shs_simulator.hpp"
#include "tools/quen-shs/src/fits_header.hpp"
#include "tools/quen-shs/src/pupil.hpp"
#include "tools/quen-shs/src/staged_file.hpp"
#include "tools/quen-shs/src/zernike.hpp"

namespace quen_shs {
namespace {

using quen::basesim::kNumModes;
using quen::basesim::kNumRois;
using quen::basesim::kNumSlopes;
using quen::common::Fits::CppToFits;
using quen::common::Fits::FitsFileWrite;
using quen::common::Fits::Handle;
using quen::common::Fits::WriteColumnPriv;
using quen::common::Fits::WriteImgPriv;
using quen::common::Fits::WriteTable;
using quen::shssim::kNumRoisUsed;

constexpr int kFirstMode = 2;  // piston moves no spot
constexpr const char* kCommand = "calibrate";

void WriteGeometry(const Handle& file) {
  WriteKey(file, "PITCH", static_cast<long>(kPitch), "[pix] sub-aperture pitch and size");
  WriteKey(file, "PUPDIAM", 2L * kPupilRadius, "[pix] outer diameter of the pupil");
  WriteKey(file, "OBSCUR", kObscuration, "inner over outer diameter of the pupil");
}

/// Writes a matrix, its columns along NAXIS1.
void WriteMatrix(const std::string& path, const Matrix& matrix, const std::string& unit, const std::string& title) {
  const Handle file = FitsFileWrite(path, true, std::nullopt);
  WriteImgPriv(file, matrix.data(), static_cast<std::size_t>(matrix.size()), DOUBLE_IMG, TDOUBLE,
               {static_cast<std::size_t>(matrix.cols()), static_cast<std::size_t>(matrix.rows())});
  WriteKey(file, "BUNIT", unit, "unit of the elements");
  WriteKey(file, "OBJECT", title, "what this is");
  WriteKey(file, "BASIS", "Zernike (Noll 2-53)", "modes, in this order");
  WriteKey(file, "PIXPRAD", PixelsPerRadian(), "[pix/rad] shift per phase across a sub-aperture");
  WriteGeometry(file);
  WriteCreator(file, kCommand);
}

void WriteRois(const std::string& path, const std::vector<std::uint8_t>& used) {
  std::vector<std::uint16_t> x_low;
  std::vector<std::uint16_t> x_up;
  std::vector<std::uint16_t> y_low;
  std::vector<std::uint16_t> y_up;
  std::vector<double> x_ref;
  std::vector<double> y_ref;
  for (std::size_t i = 0; i < kNumRois; ++i) {
    x_low.push_back(static_cast<std::uint16_t>(FirstColumn(i)));
    x_up.push_back(static_cast<std::uint16_t>(FirstColumn(i) + kPitch));
    x_ref.push_back(CentreX(i));
    y_low.push_back(static_cast<std::uint16_t>(FirstRow(i)));
    y_up.push_back(static_cast<std::uint16_t>(FirstRow(i) + kPitch));
    y_ref.push_back(CentreY(i));
  }
  const char* const u16 = CppToFits<std::uint16_t>::format;
  const char* const f64 = CppToFits<double>::format;
  {
    const Handle file = FitsFileWrite(path, true, "rois");
    WriteTable(file, {{"x_low", u16}, {"x_up", u16}, {"x_ref", f64}, {"y_low", u16}, {"y_up", u16}, {"y_ref", f64}});
    WriteColumnPriv(file, x_low.data(), kNumRois, TSHORT, 1, 1);
    WriteColumnPriv(file, x_up.data(), kNumRois, TSHORT, 2, 1);
    WriteColumnPriv(file, x_ref.data(), kNumRois, TDOUBLE, 3, 1);
    WriteColumnPriv(file, y_low.data(), kNumRois, TSHORT, 4, 1);
    WriteColumnPriv(file, y_up.data(), kNumRois, TSHORT, 5, 1);
    WriteColumnPriv(file, y_ref.data(), kNumRois, TDOUBLE, 6, 1);
    for (const char* const key : {"TUNIT1", "TUNIT2", "TUNIT3", "TUNIT4", "TUNIT5", "TUNIT6"}) {
      WriteKey(file, key, "pix", "pixel centres are at integers, from 0");
    }
    WriteGeometry(file);
    WriteCreator(file, kCommand);
  }
  const Handle file = FitsFileWrite(path, false, "rois_used");
  WriteTable(file, {{"is_used", CppToFits<std::uint8_t>::format}});
  WriteColumnPriv(file, used.data(), used.size(), TBYTE, 1, 1);
  WriteCreator(file, kCommand);
}

void RefuseToReplace(const std::string& folder) {
  for (const char* const name : kCalibrationFiles) {
    const std::filesystem::path path = std::filesystem::path(folder) / name;
    if (std::filesystem::exists(std::filesystem::symlink_status(path))) {
      throw std::runtime_error(path.string() + " exists already; use --force to replace the calibration there");
    }
  }
}

}  // namespace

double PixelsPerRadian() {
  constexpr double kSigma = 2.0;  // of the spot, pixels
  const double fwhm = 2.0 * std::sqrt(2.0 * std::numbers::ln2) * kSigma;
  return fwhm / (2.0 * std::numbers::pi);
}

Matrix ModesToSlopes(const std::vector<std::uint8_t>& used) {
  constexpr double kSize = static_cast<double>(kPitch) / kPupilRadius;  // of a sub-aperture, in pupil radii
  const double scale = kSize * PixelsPerRadian();
  Matrix m2s(kNumSlopes, kNumModes);
  Eigen::Index k = 0;
  for (std::size_t i = 0; i < used.size(); ++i) {
    if (used[i] == 0) continue;
    const double x = (CentreX(i) - kPupilCentreX) / kPupilRadius;
    const double y = (CentreY(i) - kPupilCentreY) / kPupilRadius;
    for (Eigen::Index mode = 0; mode < m2s.cols(); ++mode) {
      const Gradient mean = MeanZernikeGradient(kFirstMode + static_cast<int>(mode), x, y, kSize);
      m2s(k, mode) = scale * mean.y;
      m2s(static_cast<Eigen::Index>(kNumRoisUsed) + k, mode) = scale * mean.x;
    }
    ++k;
  }
  return m2s;
}

std::vector<std::string> WriteCalibration(const std::string& folder, bool force) {
  if (!force) RefuseToReplace(folder);
  const std::vector<std::uint8_t> used = UsedFlags();
  const Matrix m2s = ModesToSlopes(used);
  const Matrix cm = m2s.completeOrthogonalDecomposition().pseudoInverse();

  std::vector<StagedFile> files;
  files.reserve(kCalibrationFiles.size());
  for (const char* const name : kCalibrationFiles) {
    files.emplace_back((std::filesystem::path(folder) / name).string());
  }
  WriteMatrix(files[0].Path(), m2s, "pix/rad", "modes-to-slopes matrix");
  WriteMatrix(files[1].Path(), cm, "rad/pix", "control matrix");
  WriteRois(files[2].Path(), used);
  CheckAndCommit(files);
  std::vector<std::string> paths;
  paths.reserve(files.size());
  for (const StagedFile& file : files) paths.push_back(file.Target());
  return paths;
}

}  // namespace quen_shs
