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

Finding CheckMatrixFile(const std::string& key, const std::string& name, const InputFile& file, const Axes& expected) {
  constexpr const char* kRewrite = "write it again, as a primary image of doubles with these axes";
  const std::string path = std::filesystem::weakly_canonical(file.Name()).string();
  try {
    const auto [axes, bitpix] = quen::common::Fits::ReadImgParams(OpenFits(file, std::nullopt));
    if (axes == Axes(expected.rbegin(), expected.rend())) {
      return {Verdict::kWrong,
              key,
              name,
              fmt::format("{} is transposed: its axes are {}, expected {} (NAXIS1 first)", path, fmt::join(axes, " x "),
                          fmt::join(expected, " x ")),
              "transpose it before writing",
              {}};
    }
    if (axes != expected || bitpix != DOUBLE_IMG) {
      return {Verdict::kWrong,
              key,
              name,
              fmt::format("{}: expected {} doubles (BITPIX -64), found {} elements with BITPIX {}", path,
                          fmt::join(expected, " x "), fmt::join(axes, " x "), bitpix),
              kRewrite,
              {}};
    }
    return {Verdict::kGood, key, name, path, "", {}};
  } catch (const std::runtime_error& error) {
    if (IsFailureToOpen(error)) throw;  // says nothing of the calibration
    return {Verdict::kWrong, key, name, path + ": " + error.what(), kRewrite, {}};
  }
}

}  // namespace

Findings CheckFiles(std::span<const InputFile> calibration) {
  return {CheckMatrixFile("m2s.file", "M2S.fits", calibration[0], ExpectedAxes(0)),
          CheckMatrixFile("cm.file", "CM.fits", calibration[1], ExpectedAxes(1)),
          {Verdict::kGood,
           "rois.file",
           "shs_rois.fits",
           std::filesystem::weakly_canonical(calibration[2].Name()).string(),
           "",
           {}}};
}

}  // namespace quen::workbench
