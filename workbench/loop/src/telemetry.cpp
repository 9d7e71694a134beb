#include "workbench/loop/telemetry.hpp"

#include <array>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <utility>

#include "workbench/fits/table.hpp"
#include "workbench/sensor/dimensions.hpp"

namespace quen::workbench {
namespace {

using quen::common::Fits::Handle;

struct TelemetryRow {
  std::int32_t frame = 0;
  double disturbance_rms = 0.0;
  double residual_rms = 0.0;
  FrameRecord record = {NoModes(), NoModes(), NoModes()};

  static Eigen::VectorXd NoModes() { return Eigen::VectorXd::Zero(kNumModes); }
};

template <Eigen::VectorXd FrameRecord::*kVector>
std::span<double> ModesOf(TelemetryRow& row) {
  Eigen::VectorXd& modes = row.record.*kVector;
  return {modes.data(), static_cast<std::size_t>(modes.size())};
}

constexpr std::size_t kFirstOfModes = 3;
constexpr std::array<Column<TelemetryRow>, 6> kTelemetryColumns = {
    {{"frame", "", "", &TelemetryRow::frame},
     {"disturbance_rms", "rad", "phase", &TelemetryRow::disturbance_rms},
     {"residual_rms", "rad", "phase", &TelemetryRow::residual_rms},
     {"disturbance", "rad", "phase", &ModesOf<&FrameRecord::disturbance>},
     {"correction", "rad", "phase", &ModesOf<&FrameRecord::correction>},
     {"residual", "rad", "phase", &ModesOf<&FrameRecord::residual>}}};

}  // namespace

std::string TelemetryFile(const LoopOptions& options, const std::string& disturbance,
                          const std::vector<FrameRecord>& records) {
  std::vector<TelemetryRow> rows;
  rows.reserve(records.size());
  for (const FrameRecord& record : records) {
    rows.push_back({static_cast<std::int32_t>(rows.size()), record.disturbance.norm(), record.residual.norm(), record});
  }
  MemoryFits fits;
  const Handle& table = AppendRows<TelemetryRow>(fits, kTelemetryTable, kTelemetryColumns, std::move(rows));
  WriteKey(table, "GAIN", options.gain, "of the integrator");
  WriteLoopKeys(table, options, disturbance);
  return fits.Bytes();
}

void WriteLoopKeys(const Handle& file, const LoopOptions& options, const std::string& disturbance) {
  WriteKey(file, "LEAK", options.leak, "forgotten from frame to frame");
  WriteKey(file, "DELAY", static_cast<long>(options.delay), "[frame] from measurement to correction");
  WriteKey(file, "DISTURB", disturbance, "where the disturbance is from");
  WriteExposureKeys(file, options.exposure);
  WriteKey(file, "ENGINE", options.engine, "that measured");
  WriteCreator(file, "loop");
}

std::vector<FrameRecord> ReadTelemetry(const InputFile& file) {
  std::vector<FrameRecord> records;
  const auto modes = std::span(kTelemetryColumns).subspan(kFirstOfModes);
  for (TelemetryRow& row : ReadRows<TelemetryRow>(file, kTelemetryTable, modes)) {
    records.push_back(std::move(row.record));
  }
  if (records.empty()) throw std::runtime_error(file.Name() + ": its table \"telemetry\": expected rows, found none");
  return records;
}

Series ReadDisturbance(const InputFile& file) {
  const auto disturbance = std::span(kTelemetryColumns).subspan(kFirstOfModes, 1);
  const std::vector<TelemetryRow> rows = ReadRows<TelemetryRow>(file, kTelemetryTable, disturbance);
  Series series(static_cast<Eigen::Index>(rows.size()), static_cast<Eigen::Index>(kNumModes));
  for (std::size_t k = 0; k < rows.size(); ++k) {
    series.row(static_cast<Eigen::Index>(k)) = rows[k].record.disturbance;
  }
  return series;
}

}  // namespace quen::workbench
