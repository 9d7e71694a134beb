#include "testing/calibration.hpp"

#include <algorithm>
#include <filesystem>
#include <stdexcept>

namespace quen::testing {
namespace {

using basesim::kNumModes;
using basesim::kNumRois;
using basesim::kNumSlopes;

constexpr std::size_t kUsed = 607;

}  // namespace

std::vector<double>& Table::operator[](const std::string& column) {
  for (ColumnData& data : columns) {
    if (data.name == column) return data.values;
  }
  throw std::runtime_error("no column " + column);
}

void Table::Resize(std::size_t rows) {
  for (ColumnData& data : columns) data.values.resize(rows, data.values.back());
}

void Table::Remove(const std::string& column) {
  std::erase_if(columns, [&](const ColumnData& data) { return data.name == column; });
}

Calibration::Calibration()
    : m2s{DOUBLE_IMG, {kNumModes, kNumSlopes}, Ramp(kNumModes * kNumSlopes, 0.25)},
      cm{DOUBLE_IMG, {kNumSlopes, kNumModes}, Ramp(kNumSlopes * kNumModes, -0.75)},
      rois{"rois",
           {{"x_low", "U", {}},
            {"x_up", "U", {}},
            {"x_ref", "D", {}},
            {"y_low", "U", {}},
            {"y_up", "U", {}},
            {"y_ref", "D", {}}}},
      rois_used{"rois_used", {{"is_used", "B", {}}}} {
  for (std::size_t i = 0; i < kNumRois; ++i) {
    const std::size_t column = i % 33;
    const std::size_t row = i / 33;
    const auto x = static_cast<double>(24 + 24 * column);
    const auto y = static_cast<double>(12 + 24 * row);
    rois["x_low"].push_back(x);
    rois["x_up"].push_back(x + 24.0);
    rois["x_ref"].push_back(x + 11.5);
    rois["y_low"].push_back(y);
    rois["y_up"].push_back(y + 24.0);
    rois["y_ref"].push_back(y + 11.5);
    rois_used["is_used"].push_back(i < kUsed ? 1.0 : 0.0);
  }
}

void Calibration::Write(const std::string& folder) const {
  const std::string data = folder + "/data/";
  std::filesystem::create_directories(data);
  WriteImage(data + "M2S.fits", m2s.bitpix, m2s.dims, m2s.values);
  WriteImage(data + "CM.fits", cm.bitpix, cm.dims, cm.values);
  for (const Table* table : {&rois, &rois_used}) {
    const std::size_t rows = table->columns.empty() ? 0 : table->columns.front().values.size();
    AppendTable(data + "shs_rois.fits", table->name, static_cast<long>(rows), table->columns);
  }
}

}  // namespace quen::testing
