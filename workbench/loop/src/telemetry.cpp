#include "workbench/loop/telemetry.hpp"

#include <cstdint>
#include <numeric>
#include <stdexcept>

#include "common/fits/fits.hpp"
#include "workbench/fits/header.hpp"
#include "workbench/fits/memory_fits.hpp"
#include "workbench/loop/series_file.hpp"

namespace quen::workbench {
namespace {

using quen::common::Fits::Handle;
using quen::common::Fits::WriteColumnPriv;

void WriteColumn(const Handle& file, int column, const std::vector<double>& values) {
  WriteColumnPriv(file, values.data(), values.size(), TDOUBLE, column, 1);
}

void WriteRms(const Handle& file, int column, const std::vector<FrameRecord>& records,
              Eigen::VectorXd FrameRecord::*vector) {
  std::vector<double> values;
  values.reserve(records.size());
  for (const FrameRecord& record : records) values.push_back((record.*vector).norm());
  WriteColumn(file, column, values);
}

void WriteModes(const Handle& file, int column, const std::vector<FrameRecord>& records,
                Eigen::VectorXd FrameRecord::*vector) {
  std::vector<double> values;
  for (const FrameRecord& record : records) {
    const Eigen::VectorXd& modes = record.*vector;
    values.insert(values.end(), modes.begin(), modes.end());
  }
  WriteColumn(file, column, values);
}

}  // namespace

std::string TelemetryFile(const LoopOptions& options, const std::string& disturbance,
                          const std::vector<FrameRecord>& records) {
  MemoryFits fits;
  const std::string modes = std::to_string(quen::basesim::kNumModes) + "D";
  const Handle& file = fits.AddTable("telemetry", {{"frame", "J"},
                                                   {"disturbance_rms", "D"},
                                                   {"residual_rms", "D"},
                                                   {"disturbance", modes},
                                                   {"correction", modes},
                                                   {"residual", modes}});
  std::vector<std::int32_t> numbers(records.size());
  std::iota(numbers.begin(), numbers.end(), 0);
  WriteColumnPriv(file, numbers.data(), numbers.size(), TINT, 1, 1);
  WriteRms(file, 2, records, &FrameRecord::disturbance);
  WriteRms(file, 3, records, &FrameRecord::residual);
  WriteModes(file, 4, records, &FrameRecord::disturbance);
  WriteModes(file, 5, records, &FrameRecord::correction);
  WriteModes(file, 6, records, &FrameRecord::residual);
  for (const char* const key : {"TUNIT2", "TUNIT3", "TUNIT4", "TUNIT5", "TUNIT6"}) {
    WriteKey(file, key, "rad", "phase");
  }
  WriteKey(file, "GAIN", options.gain, "of the integrator");
  WriteLoopKeys(file, options, disturbance);
  return fits.Bytes();
}

void WriteLoopKeys(const Handle& file, const LoopOptions& options, const std::string& disturbance) {
  WriteKey(file, "LEAK", options.leak, "forgotten from frame to frame");
  WriteKey(file, "DELAY", static_cast<long>(options.delay), "[frame] from measurement to correction");
  WriteKey(file, "NOISE", options.noise, "half-width, units of pixel values");
  WriteKey(file, "DISTURB", disturbance, "where the disturbance is from");
  WriteKey(file, "SEED", static_cast<long>(options.seed), "of disturbance and noise");
  WriteKey(file, "ENGINE", options.engine, "that measured");
  WriteCreator(file, "loop");
}

std::vector<FrameRecord> ReadTelemetry(const InputFile& file) {
  const Series disturbance = ReadModes(file, "disturbance");
  const Series correction = ReadModes(file, "correction");
  const Series residual = ReadModes(file, "residual");
  if (disturbance.rows() == 0) throw std::runtime_error(file.Name() + ": its table \"telemetry\" has no rows");
  std::vector<FrameRecord> records;
  for (Eigen::Index frame = 0; frame < disturbance.rows(); ++frame) {
    records.push_back({disturbance.row(frame), correction.row(frame), residual.row(frame)});
  }
  return records;
}

}  // namespace quen::workbench
