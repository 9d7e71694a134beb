#include "tools/quen-shs/src/telemetry.hpp"

#include <cstdint>
#include <numeric>

#include "common/fits/fits.hpp"
#include "tools/quen-shs/src/fits_header.hpp"

namespace quen_shs {
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

void WriteTelemetry(const std::string& path, const LoopOptions& options, const std::vector<FrameRecord>& records) {
  const Handle file = quen::common::Fits::FitsFileWrite(path, true, "telemetry");
  const std::string modes = std::to_string(quen::basesim::kNumModes) + "D";
  quen::common::Fits::WriteTable(file, {{"frame", "J"},
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
  WriteKey(file, "DELAY", static_cast<long>(options.delay), "[frame] from measurement to correction");
  WriteKey(file, "NOISE", options.noise, "half-width, units of pixel values");
  WriteKey(file, "DOVERR0", options.strength, "D/r0 of the disturbance");
  WriteKey(file, "CORRELAT", kCorrelation, "of the disturbance from frame to frame");
  WriteKey(file, "SEED", static_cast<long>(options.seed), "of disturbance and noise");
  WriteKey(file, "ENGINE", options.engine, "that measured");
  WriteCreator(file, "loop");
}

}  // namespace quen_shs
