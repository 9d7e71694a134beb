#include "workbench/check/correct.hpp"

#include <algorithm>

#include "workbench/check/check.hpp"
#include "workbench/fits/header.hpp"
#include "workbench/fits/memory_fits.hpp"
#include "workbench/sensor/calibration_lookup.hpp"
#include "workbench/sensor/matrix_file.hpp"
#include "workbench/sensor/sensor_tables.hpp"

namespace quen::workbench {
namespace {

using quen::common::Fits::Handle;

constexpr const char* kCommand = "check --fix";

std::string MatrixFile(const Matrix& matrix, const InputFile& original) {
  MemoryFits fits;
  const Handle& file = fits.Image();
  WriteMatrix(file, matrix);
  CopyKeywords(original, file);
  WriteCreator(file, kCommand);
  return fits.Bytes();
}

std::string RoisFile(const CalibrationContent& content) {
  std::vector<RegionRow> rows;
  rows.reserve(content.rois.size());
  for (const auto& roi : content.rois) {
    rows.push_back({roi.x_low, roi.x_up, roi.x_ref, roi.y_low, roi.y_up, roi.y_ref});
  }
  MemoryFits fits;
  WriteCreator(AppendRegions(fits, std::move(rows), true), kCommand);
  WriteCreator(AppendFlags(fits, kFlagTable, content.used), kCommand);
  return fits.Bytes();
}

}  // namespace

std::optional<CalibrationContent> Corrected(const CalibrationContent& content, const Findings& findings) {
  CalibrationContent corrected = content;
  for (const Finding& finding : findings) {
    if (!IsWrong(finding)) continue;
    if (finding.corrections.size() != 1) return std::nullopt;
    finding.corrections.front().apply(corrected);
  }
  if (std::ranges::any_of(Examine(corrected), IsWrong)) return std::nullopt;
  return corrected;
}

std::vector<std::string> CorrectedBytes(const CalibrationContent& content) {
  const auto originals = CalibrationFiles();
  return {MatrixFile(content.m2s, originals[0]), MatrixFile(content.cm, originals[1]), RoisFile(content)};
}

}  // namespace quen::workbench
