#include <fmt/format.h>
#include <fmt/ranges.h>

#include <filesystem>
#include <stdexcept>

#include "common/fits/fits.hpp"
#include "tools/quen-shs/src/check/check.hpp"
#include "tools/quen-shs/src/sensor/calibration.hpp"

namespace quen_shs {
namespace {

using quen::basesim::kNumModes;
using quen::basesim::kNumSlopes;

using Axes = std::vector<std::size_t>;

/// Axes of the two matrices, NAXIS1 first.
Axes ExpectedAxes(std::size_t file) { return file == 0 ? Axes{kNumModes, kNumSlopes} : Axes{kNumSlopes, kNumModes}; }

Finding CheckMatrixFile(const std::string& name, const std::string& path, const Axes& expected) {
  try {
    const auto [axes, bitpix] = quen::common::Fits::ReadImgParams(quen::common::Fits::FitsFile(path, std::nullopt));
    if (axes == Axes(expected.rbegin(), expected.rend())) {
      return {Verdict::kWrong, name,
              fmt::format("{} is transposed: its axes are {}, expected {} (NAXIS1 first); transpose it before writing",
                          path, fmt::join(axes, " x "), fmt::join(expected, " x "))};
    }
    if (axes != expected || bitpix != DOUBLE_IMG) {
      return {Verdict::kWrong, name,
              fmt::format("{}: expected {} doubles (BITPIX -64), found {} elements with BITPIX {}", path,
                          fmt::join(expected, " x "), fmt::join(axes, " x "), bitpix)};
    }
    return {Verdict::kGood, name, path};
  } catch (const std::runtime_error& error) {
    return {Verdict::kWrong, name, path + ": " + error.what()};
  }
}

}  // namespace

Findings CheckFiles(const std::string& folder) {
  const auto path = [&](std::size_t file) {
    return std::filesystem::weakly_canonical(std::filesystem::path(folder) / kCalibrationFiles.at(file)).string();
  };
  return {CheckMatrixFile("M2S.fits", path(0), ExpectedAxes(0)),
          CheckMatrixFile("CM.fits", path(1), ExpectedAxes(1)),
          {Verdict::kGood, "shs_rois.fits", path(2)}};
}

}  // namespace quen_shs
