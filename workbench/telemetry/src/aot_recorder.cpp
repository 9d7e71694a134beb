#include <fmt/chrono.h>
#include <fmt/format.h>

#include <chrono>
#include <cmath>
#include <ctime>
#include <functional>
#include <numeric>
#include <span>
#include <stdexcept>
#include <utility>

#include "workbench/fits/big_endian.hpp"
#include "workbench/fits/header.hpp"
#include "workbench/fits/image_extension.hpp"
#include "workbench/loop/integrator.hpp"
#include "workbench/loop/telemetry.hpp"
#include "workbench/sensor/displacements.hpp"
#include "workbench/sensor/geometry.hpp"
#include "workbench/sensor/matrices.hpp"
#include "workbench/telemetry/aot.hpp"
#include "workbench/telemetry/src/aot_images.hpp"
#include "workbench/telemetry/src/aot_tables.hpp"

namespace quen::workbench {
namespace {

using centroiders::PixelSign;

constexpr std::size_t kAxes = 2;  // x and y
constexpr auto kHalf = static_cast<Eigen::Index>(kNumRoisUsed);

void AddNumbers(std::span<const double> numbers, Spool& spool) {
  std::string bytes;
  bytes.reserve(numbers.size_bytes());
  for (const double number : numbers) AppendBigEndian(number, bytes);
  spool.Add(bytes);
}

std::span<const double> SpanOf(const Eigen::VectorXd& vector) {
  return {vector.data(), static_cast<std::size_t>(vector.size())};
}

/// Slopes with those in x first.
Eigen::VectorXd WithXFirst(const Eigen::Ref<const Eigen::VectorXd>& slopes) {
  Eigen::VectorXd turned(slopes.size());
  turned << slopes.tail(kHalf), slopes.head(kHalf);
  return turned;
}

double Now() { return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count(); }

/// As FITS writes times.
std::string DateOf(double time) {
  const double seconds = std::floor(time);
  const auto milliseconds = static_cast<int>((time - seconds) * 1000.0);  // NOLINT(readability-magic-numbers)
  return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}", fmt::gmtime(static_cast<std::time_t>(seconds)), milliseconds);
}

/// Writes images one behind the other.
class Images {
 public:
  Images(std::string output, const ByteSink& sink, std::size_t position)
      : output_(std::move(output)), sink_(sink), position_(position) {}

  /// @param axes  the slowest first
  void Add(const char* name, std::vector<std::size_t> axes, const char* unit, const Spool& data) {
    HandOn({name, DOUBLE_IMG, std::move(axes), unit}, data);
  }
  /// @param fill  adds the values to a spool
  void Add(const char* name, std::vector<std::size_t> axes, const char* unit, const std::function<void(Spool&)>& fill) {
    Spool data(output_);
    fill(data);
    Add(name, std::move(axes), unit, data);
  }
  void HandOn(ImageExtension image, const Spool& data) {
    image.axes = {image.axes.rbegin(), image.axes.rend()};
    position_ = HandOnImage(image, data, sink_, position_);
  }

 private:
  std::string output_;
  const ByteSink& sink_;
  std::size_t position_;
};

/// Of each place on the grid the number of its sub-aperture in the measurements; -1 where none is used.
void AddMask(const Camera& camera, Spool& spool) {
  std::vector<std::int16_t> mask(kNumRois, -1);
  std::int16_t number = 0;
  for (const std::size_t i : UsedIndices(camera.RoisUsed())) mask[i] = number++;
  std::string bytes;
  for (const std::int16_t value : mask) AppendBigEndian(value, bytes);
  spool.Add(bytes);
}

/// Modes × 2 × sub-apertures.
void AddControlMatrix(const Camera& camera, Spool& spool) {
  const Eigen::Map<const Matrix> cm = CmOf(camera);
  for (Eigen::Index mode = 0; mode < cm.rows(); ++mode) AddNumbers(SpanOf(WithXFirst(cm.row(mode).transpose())), spool);
}

/// Sub-apertures × 2 × modes.
void AddModesToMeasurements(const Camera& camera, Spool& spool) {
  const Eigen::Map<const Matrix> m2s = M2sOf(camera);
  for (Eigen::Index k = 0; k < kHalf; ++k) {
    AddNumbers(SpanOf(m2s.row(kHalf + k).transpose()), spool);
    AddNumbers(SpanOf(m2s.row(k).transpose()), spool);
  }
}

void AddModes(const std::vector<FrameRecord>& records, Eigen::VectorXd FrameRecord::*vector, Spool& spool) {
  for (const FrameRecord& record : records) AddNumbers(SpanOf(record.*vector), spool);
}

/// The same numbers for every mode.
void AddForEachMode(const std::vector<double>& numbers, Spool& spool) {
  for (std::size_t mode = 0; mode < kNumModes; ++mode) AddNumbers(numbers, spool);
}

aot::Row DetectorRow(const Exposure& exposure, bool has_frames) {
  aot::Row row = {{"UID", aot::kDetectorUid}, {"TYPE", "simulated"}, {"BINNING", 1}};
  if (has_frames) row["PIXEL_INTENSITIES"] = aot::ReferenceToImage(aot::kFrames);
  if (exposure.detector) {
    row["READOUT_NOISE"] = exposure.detector->config.read_noise;
    row["GAIN"] = exposure.detector->config.gain;
  }
  return row;
}

}  // namespace

AotRecorder::AotRecorder(const Camera& camera, LoopOptions options, const std::string& output, bool with_frames)
    : camera_(camera),
      options_(std::move(options)),
      output_(output),
      has_frames_(with_frames),
      measurements_(output),
      coefficients_(output),
      frames_(output) {
  if (!output.ends_with(".gz")) return;
  throw std::runtime_error(output + ": expected a name that does not end in .gz, for this file is not compressed");
}

void AotRecorder::Record() {
  times_.push_back(Now());
  Eigen::VectorXd slopes = SlopesOf(camera_);
  AddNumbers(SpanOf(WithXFirst(slopes)), measurements_);
  LeaveOutLost(slopes);
  Eigen::VectorXd modes(static_cast<Eigen::Index>(kNumModes));
  Multiply(CmOf(camera_), slopes, modes);
  AddNumbers(SpanOf(modes), coefficients_);
  if (!has_frames_) return;
  constexpr std::uint16_t kUnsignedBit = 0x8000;
  const std::uint16_t turned = options_.exposure.Sign() == PixelSign::kUnsigned ? kUnsignedBit : 0;
  std::string bytes;
  bytes.reserve(camera_.Frame().size() * sizeof(std::uint16_t));
  for (const std::uint16_t pixel : camera_.Frame()) AppendBigEndian(static_cast<std::uint16_t>(pixel ^ turned), bytes);
  frames_.Add(bytes);
}

std::string AotRecorder::Tables(const std::string& disturbance) const {
  using aot::ReferenceToImage;
  using aot::ReferenceToRow;
  MemoryFits fits;
  const auto& primary = fits.Image();
  WriteKey(primary, aot::kVersionKey, std::string(aot::kVersion), "Adaptive Optics Telemetry");
  WriteKey(primary, "TIMESYS", std::string("UTC"), "");
  WriteKey(primary, "AO-MODE", std::string("SCAO"), "");
  WriteKey(primary, "DATE-BEG", DateOf(times_.front()), "first frame");
  WriteKey(primary, "DATE-END", DateOf(times_.back()), "last frame");
  WriteCreator(primary, "loop");

  std::vector<double> numbers(times_.size());
  std::iota(numbers.begin(), numbers.end(), 0.0);
  const std::map<std::string, std::vector<aot::Row>> rows = {
      {"AOT_TIME", {{{"UID", aot::kTimeUid}, {"TIMESTAMPS", times_}, {"FRAME_NUMBERS", numbers}}}},
      {"AOT_TELESCOPES", {{{"UID", aot::kTelescopeUid}, {"TYPE", "Main Telescope"}}}},
      {"AOT_SOURCES", {{{"UID", aot::kSourceUid}, {"TYPE", "simulated"}}}},
      {"AOT_DETECTORS", {DetectorRow(options_.exposure, has_frames_)}},
      {"AOT_WAVEFRONT_SENSORS",
       {{{"UID", aot::kSensorUid},
         {"TYPE", "Shack-Hartmann"},
         {"SOURCE_UID", ReferenceToRow(aot::kSourceUid)},
         {"DIMENSIONS", static_cast<int>(kAxes)},
         {"N_VALID_SUBAPERTURES", static_cast<int>(kNumRoisUsed)},
         {"MEASUREMENTS", ReferenceToImage(aot::kMeasurements)},
         {"SUBAPERTURE_MASK", ReferenceToImage(aot::kMask)},
         {"DETECTOR_UID", ReferenceToRow(aot::kDetectorUid)}}}},
      {"AOT_WAVEFRONT_CORRECTORS",
       {{{"UID", aot::kCorrectorUid},
         {"TYPE", "simulated, takes modes from the wavefront"},
         {"TELESCOPE_UID", ReferenceToRow(aot::kTelescopeUid)},
         {"N_VALID_ACTUATORS", static_cast<int>(kNumModes)}}}},
      {"AOT_LOOPS",
       {{{"UID", aot::kLoopUid},
         {"TYPE", "Control Loop"},
         {"COMMANDED_UID", ReferenceToRow(aot::kCorrectorUid)},
         {"TIME_UID", ReferenceToRow(aot::kTimeUid)},
         {"STATUS", "Closed"},
         {"COMMANDS", ReferenceToImage(aot::kCommands)},
         {"DELAY", static_cast<double>(options_.delay)},
         {"TIME_FILTER_NUM", ReferenceToImage(aot::kFilterNumerator)},
         {"TIME_FILTER_DEN", ReferenceToImage(aot::kFilterDenominator)}}}},
      {"AOT_WAVEFRONT_SENSORS_SHACK_HARTMANN",
       {{{"UID", aot::kSensorUid}, {"CENTROIDING_ALGORITHM", options_.engine}}}},
      {"AOT_LOOPS_CONTROL",
       {{{"UID", aot::kLoopUid},
         {"INPUT_SENSOR_UID", ReferenceToRow(aot::kSensorUid)},
         {"MODAL_COEFFICIENTS", ReferenceToImage(aot::kCoefficients)},
         {"MEASUREMENTS_TO_MODES", ReferenceToImage(aot::kControlMatrix)},
         {"MODES_TO_MEASUREMENTS", ReferenceToImage(aot::kModesToMeasurements)}}}}};
  for (const aot::Table& table : aot::Tables()) {
    const auto found = rows.find(table.name);
    const auto& handle = Append(fits, table, found == rows.end() ? std::vector<aot::Row>() : found->second);
    const std::string name = table.name;
    if (name == "AOT_DETECTORS") WriteExposureKeys(handle, options_.exposure);
    if (name != "AOT_LOOPS_CONTROL") continue;
    WriteKey(handle, "GAIN", options_.gain, "of the integrator");
    WriteLoopKeys(handle, options_, disturbance);
  }
  return fits.Bytes();
}

void AotRecorder::Write(const std::vector<FrameRecord>& records, const std::string& disturbance,
                        const ByteSink& sink) const {
  const std::size_t frames = times_.size();
  const std::string tables = Tables(disturbance);
  sink(tables, 0);
  Images images(output_, sink, tables.size());
  images.Add(aot::kMeasurements, {frames, kAxes, kNumRoisUsed}, "pixel", measurements_);
  Spool mask(output_);
  AddMask(camera_, mask);
  images.HandOn({aot::kMask, SHORT_IMG, {kGridSize, kGridSize}}, mask);
  images.Add(aot::kCommands, {frames, kNumModes}, "rad",
             [&](Spool& spool) { AddModes(records, &FrameRecord::correction, spool); });
  images.Add(aot::kFilterNumerator, {kNumModes, 1}, "", [&](Spool& spool) { AddForEachMode({options_.gain}, spool); });
  images.Add(aot::kFilterDenominator, {kNumModes, 2}, "", [&](Spool& spool) {
    AddForEachMode({1.0, options_.leak - 1.0}, spool);
  });
  images.Add(aot::kCoefficients, {frames, kNumModes}, "rad", coefficients_);
  images.Add(aot::kControlMatrix, {kNumModes, kAxes, kNumRoisUsed}, "rad/pixel",
             [&](Spool& spool) { AddControlMatrix(camera_, spool); });
  images.Add(aot::kModesToMeasurements, {kNumRoisUsed, kAxes, kNumModes}, "pixel/rad",
             [&](Spool& spool) { AddModesToMeasurements(camera_, spool); });
  images.Add(aot::kDisturbance, {frames, kNumModes}, "rad",
             [&](Spool& spool) { AddModes(records, &FrameRecord::disturbance, spool); });
  if (!has_frames_) return;
  images.HandOn({aot::kFrames,
                 SHORT_IMG,
                 {frames, kFrameHeight, kFrameWidth},
                 "adu",
                 options_.exposure.Sign() == PixelSign::kUnsigned},
                frames_);
}

}  // namespace quen::workbench
