#include "workbench/loop/series_file.hpp"

#include <fmt/format.h>

#include <cmath>
#include <stdexcept>

#include "basesim/base_simulator.hpp"
#include "common/fits/fits.hpp"
#include "workbench/fits/content.hpp"

namespace quen::workbench {
namespace {

using quen::basesim::kNumModes;
using quen::common::Fits::Handle;

constexpr const char* kTable = "telemetry";
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

Series ReadModes(const InputFile& file, const char* column) {
  const Handle table = OpenFits(file, kTable);
  std::string name = column;
  int status = 0;
  int number = 0;
  int type = 0;
  long width = 0;
  long rows = 0;
  fits_get_colnum(table->file, CASESEN, name.data(), &number, &status);
  fits_get_coltype(table->file, number, &type, &width, nullptr, &status);
  fits_get_num_rows(table->file, &rows, &status);
  fits_clear_errmsg();
  if (status != 0 || width != static_cast<long>(kNumModes)) {
    throw std::runtime_error(fmt::format("{}: expected a column \"{}\" of {} modes in its table \"{}\", found none",
                                         file.Name(), column, kNumModes, kTable));
  }
  if (static_cast<std::uint64_t>(rows) > file.Size() / kNumModes) status = BAD_TFORM;
  Series series(status == 0 ? rows : 0, kModes);
  fits_read_col(table->file, TDOUBLE, number, 1, 1, series.size(), nullptr, series.data(), nullptr, &status);
  if (status != 0) {
    fits_clear_errmsg();
    throw std::runtime_error(
        fmt::format("{}: its column \"{}\" cannot be read (CFITSIO status {})", file.Name(), column, status));
  }
  return series;
}

Series ReadSeries(const InputFile& file) {
  RequireFits(file);
  Series series = HasTable(file, kTable) ? ReadModes(file, "disturbance") : ReadImage(file);
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
