#include "workbench/telemetry/src/aot_tables.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <utility>

#include "workbench/fits/header.hpp"

namespace quen::workbench::aot {
namespace {

using quen::common::Fits::Handle;
using quen::common::Fits::WriteColumnPriv;

constexpr std::int16_t kNoWhole = std::numeric_limits<std::int16_t>::min();

constexpr Column kUid = {"UID"};
constexpr Column kTransformation = {"TRANSFORMATION_MATRIX", Kind::kImage};
constexpr Column kAberration = {"ABERRATION_UID", Kind::kRow, "", "AOT_ABERRATIONS"};
constexpr Column kDetector = {"DETECTOR_UID", Kind::kRow, "", "AOT_DETECTORS"};
constexpr Column kTime = {"TIME_UID", Kind::kRow, "", "AOT_TIME"};

/// The value of a row's column, or `otherwise` where it has none.
template <typename T>
T ValueOr(const Row& row, const Column& column, T otherwise) {
  const auto found = row.find(column.name);
  return found == row.end() ? otherwise : std::get<T>(found->second);
}

std::size_t WidthOf(const Column& column, const std::vector<Row>& rows) {
  std::size_t width = 1;  // CFITSIO has no zero-width texts in all of its functions
  for (const Row& row : rows) width = std::max(width, ValueOr(row, column, std::string()).size());
  return width;
}

std::string FormatOf(const Column& column, const std::vector<Row>& rows) {
  if (column.kind == Kind::kWhole) return "I";
  if (column.kind == Kind::kNumber) return "D";
  if (column.kind == Kind::kList) return "1PD";
  return fmt::format("{}A", WidthOf(column, rows));
}

void WriteTexts(const Handle& table, const Column& column, int number, const std::vector<Row>& rows) {
  std::vector<std::string> texts;
  texts.reserve(rows.size());
  for (const Row& row : rows) texts.push_back(ValueOr(row, column, std::string()));
  std::vector<char*> places;
  places.reserve(rows.size());
  for (std::string& text : texts) places.push_back(text.data());
  WriteColumnPriv(table, static_cast<const void*>(places.data()), places.size(), TSTRING, number, 1);
}

void WriteLists(const Handle& table, const Column& column, int number, const std::vector<Row>& rows) {
  int place = 0;
  for (const Row& row : rows) {
    // A list is written into its own row, which is as long as the list.
    const auto list = ValueOr(row, column, std::vector<double>());
    WriteColumnPriv(table, list.data(), list.size(), TDOUBLE, number, ++place);
  }
}

template <typename T, typename Given>
void WriteNumbers(const Handle& table, const Column& column, int number, const std::vector<Row>& rows, int datatype,
                  T none) {
  std::vector<T> values;
  values.reserve(rows.size());
  for (const Row& row : rows) values.push_back(static_cast<T>(ValueOr<Given>(row, column, none)));
  WriteColumnPriv(table, values.data(), values.size(), datatype, number, 1);
}

void Write(const Handle& table, const Column& column, int number, const std::vector<Row>& rows) {
  if (*column.unit != '\0') WriteKey(table, fmt::format("TUNIT{}", number), column.unit, "");
  switch (column.kind) {
    case Kind::kText:
    case Kind::kRow:
    case Kind::kImage:
      return WriteTexts(table, column, number, rows);
    case Kind::kWhole:
      WriteKey(table, fmt::format("TNULL{}", number), static_cast<long>(kNoWhole), "no value");
      return WriteNumbers<std::int16_t, int>(table, column, number, rows, TSHORT, kNoWhole);
    case Kind::kNumber:
      return WriteNumbers<double, double>(table, column, number, rows, TDOUBLE,
                                          std::numeric_limits<double>::quiet_NaN());
    case Kind::kList:
      return WriteLists(table, column, number, rows);
  }
}

}  // namespace

const std::vector<Table>& Tables() {
  static const std::vector<Table> tables = {
      {"AOT_TIME", {kUid, {"TIMESTAMPS", Kind::kList, "s"}, {"FRAME_NUMBERS", Kind::kList}}},
      {"AOT_ATMOSPHERIC_PARAMETERS",
       {kUid,
        {"WAVELENGTH", Kind::kNumber, "m"},
        kTime,
        {"R0", Kind::kList, "m"},
        {"SEEING", Kind::kList, "arcsec"},
        {"TAU0", Kind::kList, "s"},
        {"THETA0", Kind::kList, "rad"},
        {"LAYERS_WEIGHT", Kind::kImage},
        {"LAYERS_HEIGHT", Kind::kImage},
        {"LAYERS_L0", Kind::kImage},
        {"LAYERS_WIND_SPEED", Kind::kImage},
        {"LAYERS_WIND_DIRECTION", Kind::kImage},
        kTransformation}},
      {"AOT_ABERRATIONS",
       {kUid,
        {"MODES", Kind::kImage},
        {"COEFFICIENTS", Kind::kImage},
        {"X_OFFSETS", Kind::kList, "rad"},
        {"Y_OFFSETS", Kind::kList, "rad"}}},
      {"AOT_TELESCOPES",
       {kUid,
        {"TYPE"},
        {"LATITUDE", Kind::kNumber, "deg"},
        {"LONGITUDE", Kind::kNumber, "deg"},
        {"ELEVATION", Kind::kNumber, "deg"},
        {"AZIMUTH", Kind::kNumber, "deg"},
        {"PARALLACTIC", Kind::kNumber, "deg"},
        {"PUPIL_MASK", Kind::kImage},
        {"PUPIL_ANGLE", Kind::kNumber, "rad"},
        {"ENCLOSING_DIAMETER", Kind::kNumber, "m"},
        {"INSCRIBED_DIAMETER", Kind::kNumber, "m"},
        {"OBSTRUCTION_DIAMETER", Kind::kNumber, "m"},
        {"SEGMENT_TYPE"},
        {"SEGMENT_SIZE", Kind::kNumber, "m"},
        {"SEGMENTS_X", Kind::kList, "m"},
        {"SEGMENTS_Y", Kind::kList, "m"},
        kTransformation,
        kAberration}},
      {"AOT_SOURCES",
       {kUid,
        {"TYPE"},
        {"RIGHT_ASCENSION", Kind::kNumber, "deg"},
        {"DECLINATION", Kind::kNumber, "deg"},
        {"ELEVATION_OFFSET", Kind::kNumber, "deg"},
        {"AZIMUTH_OFFSET", Kind::kNumber, "deg"},
        {"WIDTH", Kind::kNumber, "rad"}}},
      {"AOT_DETECTORS",
       {kUid,
        {"TYPE"},
        {"SAMPLING_TECHNIQUE"},
        {"SHUTTER_TYPE"},
        {"FLAT_FIELD", Kind::kImage},
        {"READOUT_NOISE", Kind::kNumber, "electron"},
        {"PIXEL_INTENSITIES", Kind::kImage},
        {"FIELD_CENTRE_X", Kind::kNumber, "pixel"},
        {"FIELD_CENTRE_Y", Kind::kNumber, "pixel"},
        {"INTEGRATION_TIME", Kind::kNumber, "s"},
        {"COADDS", Kind::kWhole},
        {"DARK", Kind::kImage},
        {"WEIGHT_MAP", Kind::kImage},
        {"QUANTUM_EFFICIENCY", Kind::kNumber},
        {"PIXEL_SCALE", Kind::kNumber, "rad/pixel"},
        {"BINNING", Kind::kWhole},
        {"BANDWIDTH", Kind::kNumber, "m"},
        {"TRANSMISSION_WAVELENGTH", Kind::kList, "m"},
        {"TRANSMISSION", Kind::kList},
        {"SKY_BACKGROUND", Kind::kImage},
        {"GAIN", Kind::kNumber, "adu/electron"},
        {"EXCESS_NOISE", Kind::kNumber},
        {"FILTER"},
        {"BAD_PIXEL_MAP", Kind::kImage},
        {"DYNAMIC_RANGE", Kind::kNumber, "dB"},
        {"READOUT_RATE", Kind::kNumber, "pixel/s"},
        {"FRAME_RATE", Kind::kNumber, "Hz"},
        kTransformation}},
      {"AOT_SCORING_CAMERAS",
       {kUid,
        {"PUPIL_MASK", Kind::kImage},
        {"WAVELENGTH", Kind::kNumber, "m"},
        kTransformation,
        kDetector,
        kAberration}},
      {"AOT_WAVEFRONT_SENSORS",
       {kUid,
        {"TYPE"},
        {"SOURCE_UID", Kind::kRow, "", "AOT_SOURCES"},
        {"DIMENSIONS", Kind::kWhole},
        {"N_VALID_SUBAPERTURES", Kind::kWhole},
        {"MEASUREMENTS", Kind::kImage, "", "", "tds"},
        {"REF_MEASUREMENTS", Kind::kImage},
        {"SUBAPERTURE_MASK", Kind::kImage},
        {"MASK_X_OFFSETS", Kind::kList},
        {"MASK_Y_OFFSETS", Kind::kList},
        {"SUBAPERTURE_SIZE", Kind::kNumber, "m"},
        {"SUBAPERTURE_INTENSITIES", Kind::kImage},
        {"WAVELENGTH", Kind::kNumber, "m"},
        {"OPTICAL_GAIN", Kind::kImage},
        kTransformation,
        kDetector,
        kAberration,
        {"NCPA_UID", Kind::kRow, "", "AOT_ABERRATIONS"}}},
      {"AOT_WAVEFRONT_CORRECTORS",
       {kUid,
        {"TYPE"},
        {"TELESCOPE_UID", Kind::kRow, "", "AOT_TELESCOPES"},
        {"N_VALID_ACTUATORS", Kind::kWhole},
        {"PUPIL_MASK", Kind::kImage},
        {"TFZ_NUM", Kind::kList},
        {"TFZ_DEN", Kind::kList},
        kTransformation,
        kAberration}},
      {"AOT_LOOPS",
       {kUid,
        {"TYPE"},
        {"COMMANDED_UID", Kind::kRow, "", "AOT_WAVEFRONT_CORRECTORS"},
        kTime,
        {"STATUS"},
        {"COMMANDS", Kind::kImage, "", "", "ta"},
        {"REF_COMMANDS", Kind::kImage},
        {"FRAMERATE", Kind::kNumber, "Hz"},
        {"DELAY", Kind::kNumber, "frame"},
        {"TIME_FILTER_NUM", Kind::kImage, "", "", "mn"},
        {"TIME_FILTER_DEN", Kind::kImage, "", "", "mk"}}},
      {"AOT_WAVEFRONT_SENSORS_SHACK_HARTMANN",
       {kUid, {"CENTROIDING_ALGORITHM"}, {"CENTROID_GAINS", Kind::kImage}, {"SPOT_FWHM", Kind::kImage}},
       "AOT_WAVEFRONT_SENSORS",
       true},
      {"AOT_LOOPS_CONTROL",
       {kUid,
        {"INPUT_SENSOR_UID", Kind::kRow, "", "AOT_WAVEFRONT_SENSORS"},
        {"MODES", Kind::kImage},
        {"MODAL_COEFFICIENTS", Kind::kImage, "", "", "tm"},
        {"CONTROL_MATRIX", Kind::kImage},
        {"MEASUREMENTS_TO_MODES", Kind::kImage, "", "", "mds"},
        {"MODES_TO_COMMANDS", Kind::kImage},
        {"INTERACTION_MATRIX", Kind::kImage},
        {"COMMANDS_TO_MODES", Kind::kImage},
        {"MODES_TO_MEASUREMENTS", Kind::kImage, "", "", "sdm"},
        {"RESIDUAL_COMMANDS", Kind::kImage}},
       "AOT_LOOPS",
       true}};
  return tables;
}

std::string ReferenceToRow(const std::string& uid) { return fmt::format("{}{}>", kRowReference, uid); }
std::string ReferenceToImage(const std::string& extension) { return fmt::format("{}{}>", kImageReference, extension); }

const Handle& Append(MemoryFits& fits, const Table& table, const std::vector<Row>& rows) {
  std::vector<std::pair<std::string, std::string>> formats;
  formats.reserve(table.columns.size());
  for (const Column& column : table.columns) formats.emplace_back(column.name, FormatOf(column, rows));
  const Handle& handle = fits.AddTable(table.name, formats);
  int number = 0;
  for (const Column& column : table.columns) Write(handle, column, ++number, rows);
  return handle;
}

}  // namespace quen::workbench::aot
