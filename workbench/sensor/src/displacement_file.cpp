#include "workbench/sensor/displacement_file.hpp"

#include <fmt/format.h>

#include <cmath>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "workbench/fits/content.hpp"
#include "workbench/fits/header.hpp"
#include "workbench/fits/numbers.hpp"
#include "workbench/sensor/dimensions.hpp"
#include "workbench/sensor/sensor_tables.hpp"

namespace quen::workbench {
namespace {

Displacements ReadText(const InputFile& file) {
  std::istringstream lines(file.Text());
  Displacements displacements;
  std::size_t count = 0;
  int number = 0;
  bool may_be_title = true;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    const std::string_view text = Trimmed(line);
    if (text.empty() || text.starts_with('#')) continue;
    const std::size_t comma = text.find(',');
    const std::string_view second = comma == std::string_view::npos ? "" : text.substr(comma + 1);
    const std::optional<double> x = ParseNumber(text.substr(0, comma));
    const std::optional<double> y = ParseNumber(second);
    const bool is_title = may_be_title && !x && !y && !second.empty();
    may_be_title = false;
    if (is_title) continue;
    if (!x || !y) {
      throw std::runtime_error(
          fmt::format("{}, line {}: expected two finite numbers \"dx,dy\", found \"{}\"", file.Name(), number, text));
    }
    if (count < kNumRois) {
      displacements.x[count] = *x;
      displacements.y[count] = *y;
    }
    ++count;
  }
  if (count != kNumRois) {
    throw std::runtime_error(
        fmt::format("{}: expected {} lines \"dx,dy\", one per sub-aperture, found {}", file.Name(), kNumRois, count));
  }
  return displacements;
}

void RequireFinite(const std::vector<double>& values, const char* column, const InputFile& file) {
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (std::isfinite(values[i])) continue;
    throw std::runtime_error(
        fmt::format("{}: expected finite displacements in its table \"slopes\", found {} in row {} of {}", file.Name(),
                    values[i], i + 1, column));
  }
}

}  // namespace

Displacements ReadDisplacements(const InputFile& file) {
  if (!IsFits(file)) return ReadText(file);
  RequireTable(file, kSlopeTable);
  Displacements displacements = ReadSlopeDisplacements(file);
  RequireFinite(displacements.x, "x", file);
  RequireFinite(displacements.y, "y", file);
  return displacements;
}

std::string DisplacementFile(const Displacements& displacements, const std::string& command, const Exposure& exposure) {
  MemoryFits fits;
  const quen::common::Fits::Handle& table = AppendDisplacements(fits, displacements);
  WriteExposureOfDetector(table, exposure);
  WriteCreator(table, command);
  return fits.Bytes();
}

}  // namespace quen::workbench
