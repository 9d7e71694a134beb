#include "workbench/loop/series_file.hpp"

#include <fmt/format.h>

#include <cmath>
#include <stdexcept>

#include "common/fits/fits.hpp"
#include "workbench/fits/content.hpp"
#include "workbench/loop/telemetry.hpp"
#include "workbench/sensor/dimensions.hpp"

namespace quen::workbench {
namespace {

using quen::common::Fits::Handle;

constexpr auto kModes = static_cast<Eigen::Index>(kNumModes);

Series ReadImage(const InputFile& file) {
  return Reading(file, [&] {
    const Handle image = OpenFits(file, std::nullopt);
    const auto [axes, bitpix] = quen::common::Fits::ReadImgParams(image);
    if (axes.size() != 2 || axes[0] != kNumModes || bitpix != DOUBLE_IMG) {
      throw std::runtime_error(fmt::format(
          "{}: expected a table \"telemetry\", or an image of doubles (BITPIX -64) with NAXIS1 = {} modes and NAXIS2 "
          "frames; found neither",
          file.Name(), kNumModes));
    }
    Series series(static_cast<Eigen::Index>(axes[1]), kModes);
    quen::common::Fits::ReadImgPriv(image, series.data(), static_cast<std::size_t>(series.size()), DOUBLE_IMG, TDOUBLE,
                                    std::nullopt);
    return series;
  });
}

}  // namespace

Series ReadSeries(const InputFile& file) {
  RequireFits(file);
  Series series = HasTable(file, kTelemetryTable) ? ReadDisturbance(file) : ReadImage(file);
  for (Eigen::Index frame = 0; frame < series.rows(); ++frame) {
    for (Eigen::Index mode = 0; mode < kModes; ++mode) {
      if (std::isfinite(series(frame, mode))) continue;
      throw std::runtime_error(fmt::format("{}: expected finite modes, found {} in frame {}, mode {} (counted from 0)",
                                           file.Name(), series(frame, mode), frame, mode));
    }
  }
  return series;
}

}  // namespace quen::workbench
