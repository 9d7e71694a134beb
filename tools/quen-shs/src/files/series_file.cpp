#include "tools/quen-shs/src/files/series_file.hpp"

#include <fmt/format.h>

#include <cmath>
#include <stdexcept>

#include "basesim/base_simulator.hpp"
#include "common/fits/fits.hpp"
#include "tools/quen-shs/src/files/fits_content.hpp"

namespace quen_shs {
namespace {

using quen::basesim::kNumModes;
using quen::common::Fits::Handle;

constexpr const char* kTable = "telemetry";
constexpr auto kModes = static_cast<Eigen::Index>(kNumModes);

Series ReadImage(const std::string& path) {
  const Handle file = quen::common::Fits::FitsFile(path, std::nullopt);
  const auto [axes, bitpix] = quen::common::Fits::ReadImgParams(file);
  if (axes.size() != 2 || axes[0] != kNumModes || bitpix != DOUBLE_IMG) {
    throw std::runtime_error(fmt::format(
        "{}: expected a table \"telemetry\", or an image of doubles (BITPIX -64) with NAXIS1 = {} modes and NAXIS2 "
        "frames; found neither",
        path, kNumModes));
  }
  Series series(static_cast<Eigen::Index>(axes[1]), kModes);
  quen::common::Fits::ReadImgPriv(file, series.data(), static_cast<std::size_t>(series.size()), DOUBLE_IMG, TDOUBLE,
                                  std::nullopt);
  return series;
}

}  // namespace

Series ReadModes(const std::string& path, const char* column) {
  const Handle file = quen::common::Fits::FitsFile(path, kTable);
  std::string name = column;
  int status = 0;
  int number = 0;
  int type = 0;
  long width = 0;
  long rows = 0;
  fits_get_colnum(file->file, CASESEN, name.data(), &number, &status);
  fits_get_coltype(file->file, number, &type, &width, nullptr, &status);
  fits_get_num_rows(file->file, &rows, &status);
  if (status != 0 || width != static_cast<long>(kNumModes)) {
    fits_clear_errmsg();
    throw std::runtime_error(fmt::format("{}: expected a column \"{}\" of {} modes in its table \"{}\", found none",
                                         path, column, kNumModes, kTable));
  }
  Series series(rows, kModes);
  fits_read_col(file->file, TDOUBLE, number, 1, 1, series.size(), nullptr, series.data(), nullptr, &status);
  if (status != 0) {
    fits_clear_errmsg();
    throw std::runtime_error(
        fmt::format("{}: its column \"{}\" cannot be read (CFITSIO status {})", path, column, status));
  }
  return series;
}

Series ReadSeries(const std::string& path) {
  RequireFits(path);
  Series series = HasTable(path, kTable) ? ReadModes(path, "disturbance") : ReadImage(path);
  for (Eigen::Index frame = 0; frame < series.rows(); ++frame) {
    for (Eigen::Index mode = 0; mode < kModes; ++mode) {
      if (std::isfinite(series(frame, mode))) continue;
      throw std::runtime_error(fmt::format("{}: expected finite modes, found {} in frame {}, mode {} (counted from 0)",
                                           path, series(frame, mode), frame, mode));
    }
  }
  return series;
}

}  // namespace quen_shs
