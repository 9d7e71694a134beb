#include <fmt/format.h>
#include <fmt/ranges.h>

#include <filesystem>
#include <stdexcept>

#include "common/fits/fits.hpp"
#include "workbench/check/check.hpp"
#include "workbench/fits/content.hpp"

namespace quen::workbench {
namespace {

using quen::basesim::kNumModes;
using quen::basesim::kNumSlopes;

using Axes = std::vector<std::size_t>;

/// Axes of the two matrices, NAXIS1 first.
Axes ExpectedAxes(std::size_t file) { return file == 0 ? Axes{kNumModes, kNumSlopes} : Axes{kNumSlopes, kNumModes}; }

Finding CheckMatrixFile(const std::string& name, const InputFile& file, const Axes& expected) {
  const std::string path = std::filesystem::weakly_canonical(file.Name()).string();
  try {
    const auto [axes, bitpix] = quen::common::Fits::ReadImgParams(OpenFits(file, std::nullopt));
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
    if (IsFailureToOpen(error)) throw;  // says nothing of the calibration
    return {Verdict::kWrong, name, path + ": " + error.what()};
  }
}

}  // namespace

Findings CheckFiles(std::span<const InputFile> calibration) {
  return {CheckMatrixFile("M2S.fits", calibration[0], ExpectedAxes(0)),
          CheckMatrixFile("CM.fits", calibration[1], ExpectedAxes(1)),
          {Verdict::kGood, "shs_rois.fits", std::filesystem::weakly_canonical(calibration[2].Name()).string()}};
}

}  // namespace quen::workbench
